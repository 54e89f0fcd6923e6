// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <chrono>
#include <optional>

namespace tools {

/// A limit on the time that something takes, counted from now; or none.
class Deadline {
 public:
  explicit Deadline(std::optional<double> seconds) : seconds_(seconds) {}

  [[nodiscard]] bool is_over() const { return seconds_ && elapsed() > *seconds_; }
  [[nodiscard]] double elapsed() const {
    return std::chrono::duration<double>(Clock::now() - begun_).count();
  }

 private:
  using Clock = std::chrono::steady_clock;

  std::optional<double> seconds_;
  Clock::time_point begun_ = Clock::now();
};

}  // namespace tools
