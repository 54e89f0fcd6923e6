// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "tools/analysis/packet_pass.h"

namespace analysis {

/// How a PCR follows the one before.
enum class PcrStep : std::uint8_t {
  steady,     // 0 to 100 ms on
  late,       // more than 100 ms on, and so is its place in the stream
  jump,       // elsewhere, without notice
  signalled,  // discontinuity_indicator announced it
  sync_lost,  // packets between them are missing
};

/// One PCR, seen from the one before.
struct PcrPoint {
  std::uint64_t packet = 0;
  PcrStep step = PcrStep::signalled;
  double difference = 0;  // of the values, in seconds; NaN where it tells nothing
  double interval = 0;    // that passed between the two, in seconds
  double seconds = 0;     // since the first packet of the stream
  /// Distance in seconds from the value its place calls for.
  std::optional<double> deviation;
};

/// The clock of one PCR PID: packet numbers to seconds. A file keeps no times of
/// arrival, so time is what the PCRs say, with a constant bit rate between two of
/// them; jumps are bridged at the bit rate that is usual on the PID.
class Clock {
 public:
  explicit Clock(std::span<const PcrSample> samples);

  /// False with fewer than two PCRs that follow each other.
  [[nodiscard]] bool usable() const { return packet_time_ > 0; }
  /// Since packet 0, which need not have a PCR; before the first and behind the
  /// last PCR at the usual rate.
  [[nodiscard]] double seconds_at(std::uint64_t packet) const;
  [[nodiscard]] const std::vector<PcrPoint>& points() const { return points_; }
  /// Of one packet at the usual rate, in seconds.
  [[nodiscard]] double packet_time() const { return packet_time_; }
  /// Distance of the 10th to the 90th percentile of the rates between PCRs, by
  /// their median. Over kSteadyRate no deviation is measured: not the PCRs, the
  /// bit rate varies.
  [[nodiscard]] double rate_spread() const { return rate_spread_; }

  static constexpr double kSteadyRate = 0.01;

 private:
  void find_rate(std::span<const PcrSample> samples);
  [[nodiscard]] PcrPoint point_of(const PcrSample& before, const PcrSample& sample) const;
  void measure_deviations(std::span<const PcrSample> samples);
  void measure_run(std::span<const PcrSample> samples, std::size_t begin, std::size_t end);

  std::vector<PcrPoint> points_;
  double packet_time_ = 0;
  double rate_spread_ = 0;
};

}  // namespace analysis
