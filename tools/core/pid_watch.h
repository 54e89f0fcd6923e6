// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <optional>
#include <set>
#include <span>
#include <string>

#include "tools/analysis/packet_counts.h"
#include "tools/core/deadline.h"
#include "tools/core/input.h"

namespace tools {

/// Tells of PIDs that somebody waits for and that do not come. The feeding
/// thread's alone.
class PidWatch {
 public:
  /// A live input is waited for `seconds`, or for ten.
  PidWatch(const Input& input, std::set<unsigned> pids, std::optional<double> seconds);

  void add(std::span<const std::uint8_t> data) { rates_.add(data); }
  [[nodiscard]] const analysis::PacketCounts& rates() const { return rates_; }

  /// While the stream is fed: Failure when a live input has sent none of the PIDs
  /// for too long.
  void check() const;
  /// At the end: Failure, which names them, where some never came.
  void finish() const;
  /// "PID 300 was not in the stream" or "PID 300 not seen after 10 s", for all that
  /// are missing; empty where none is.
  [[nodiscard]] std::string missing() const;

 private:
  [[nodiscard]] std::string missing_after(double seconds) const;

  bool live_;
  double patience_;
  std::set<unsigned> pids_;
  analysis::PacketCounts rates_;
  Deadline since_begin_{std::nullopt};
};

/// "not seen after 10 s", as these messages say it.
std::string not_seen_after(double seconds);

}  // namespace tools
