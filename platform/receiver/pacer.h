// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace qel::receiver {

/// Tells how long a live input's data has to wait, so that a file goes in at
/// the pace at which it would be received.
///
/// The first PID that brings a PCR sets the pace. Not locked.
class Pacer {
 public:
  using Clock = std::chrono::steady_clock;

  /// Time from `now` until the packet with this PCR is due; zero if it is late
  /// or of another PID. Where the PCR jumps by over a second, or data comes
  /// over a second late, this packet is due at once and the pace starts anew.
  Clock::duration delay(unsigned pid, std::uint64_t pcr_27mhz, Clock::time_point now);

  /// The PID that sets the pace, once there is one.
  [[nodiscard]] std::optional<unsigned> pid() const { return pid_; }

  /// Lets another PID set the pace.
  void reset() { *this = Pacer(); }

 private:
  std::optional<unsigned> pid_;
  std::uint64_t last_ = 0;  // the last PCR
  Clock::time_point due_;   // when that one was due
};

}  // namespace qel::receiver
