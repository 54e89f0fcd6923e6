// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace tools {

/// Shows how far a piece of work is, where standard error is a terminal: a bar
/// with rate and time left, or bytes and rate where the total is unknown (0).
/// Elsewhere nothing.
class Progress {
 public:
  Progress(std::string what, std::uint64_t total);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void show(std::uint64_t done);

 private:
  using Clock = std::chrono::steady_clock;

  std::string what_;
  std::uint64_t total_;
  bool terminal_;
  Clock::time_point begun_ = Clock::now();
  Clock::time_point shown_ = begun_;
};

/// "12.3 MB" and the like; powers of ten.
std::string human_bytes(double bytes);

}  // namespace tools
