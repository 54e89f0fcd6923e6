// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

namespace qel::receiver {

/// Anonymous memory that is taken page by page as it is written to.
class Mapping {
 public:
  Mapping() = default;
  /// Empty where the system has no address space left.
  explicit Mapping(std::size_t size);
  Mapping(Mapping&& other) noexcept { *this = std::move(other); }
  Mapping& operator=(Mapping&& other) noexcept {
    std::swap(bytes_, other.bytes_);
    std::swap(size_, other.size_);
    return *this;
  }
  Mapping(const Mapping&) = delete;
  Mapping& operator=(const Mapping&) = delete;
  ~Mapping();

  [[nodiscard]] std::uint8_t* bytes() const { return bytes_; }
  [[nodiscard]] std::size_t size() const { return size_; }

 private:
  std::uint8_t* bytes_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace qel::receiver
