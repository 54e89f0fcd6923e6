// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <utility>

namespace vantrel {

/// Owner of a file descriptor; -1 means that it owns none.
class UniqueFD {
 public:
  UniqueFD() = default;
  explicit UniqueFD(int fd) : fd_(fd) {}
  UniqueFD(UniqueFD&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  UniqueFD& operator=(UniqueFD&& other) noexcept {
    reset(std::exchange(other.fd_, -1));
    return *this;
  }
  UniqueFD(const UniqueFD&) = delete;
  UniqueFD& operator=(const UniqueFD&) = delete;
  ~UniqueFD() { reset(); }

  [[nodiscard]] int get() const { return fd_; }
  [[nodiscard]] bool valid() const { return fd_ >= 0; }
  [[nodiscard]] int release() { return std::exchange(fd_, -1); }
  void reset(int fd = -1);

 private:
  int fd_ = -1;
};

}  // namespace vantrel
