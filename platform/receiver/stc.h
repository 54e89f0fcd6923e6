// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace qel::receiver {

/// System time clock of a programme, in units of 27 MHz: a PCR's 33 bits at
/// 90 kHz, times 300, plus its extension, and back to zero where those end.
///
/// Runs on from PCR to PCR by the monotonic clock; no further than a stream
/// may leave between two, and not while it is held. Not locked.
class Stc {
 public:
  using Clock = std::chrono::steady_clock;

  /// Where the clock goes back to zero.
  static constexpr std::uint64_t kWrap = (std::uint64_t{1} << 33) * 300;
  /// How far it runs on without a PCR.
  static constexpr std::chrono::milliseconds kFreeRun{100};

  /// Sets the clock. A PCR somewhat behind it stops it until the stream has
  /// caught up; with `discontinuity`, or further behind, it is a new time base.
  void on_pcr(std::uint64_t pcr_27mhz, Clock::time_point now, bool discontinuity);
  /// Empty before the first PCR.
  [[nodiscard]] std::optional<std::uint64_t> read(Clock::time_point now) const;

  /// Stops the clock while its stream waits, and lets it go on.
  void hold(Clock::time_point now);
  void resume(Clock::time_point now);

  void reset() { *this = Stc(); }

 private:
  [[nodiscard]] std::uint64_t value(Clock::time_point now) const;

  bool started_ = false;
  std::uint64_t pcr_ = 0;                  // the last one
  std::uint64_t reached_ = 0;              // what the clock showed when that came
  Clock::time_point since_;                // when that came, time on hold left out
  std::optional<Clock::time_point> held_;  // since when
};

}  // namespace qel::receiver
