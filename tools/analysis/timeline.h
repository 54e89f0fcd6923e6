// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <map>
#include <vector>

#include "tools/analysis/evaluate.h"

namespace analysis {

/// Places and times of packets.
class Timeline {
 public:
  Timeline(const PacketPass& pass, const PacketReader& reader,
           const std::vector<Reference>& references);

  /// By the clock that times the PID.
  [[nodiscard]] Place place(std::uint64_t packet, unsigned pid) const;
  /// The clock of the PID's programme, else the multiplex's; null without any.
  [[nodiscard]] const Clock* clock_of(unsigned pid) const;
  [[nodiscard]] unsigned reference() const { return reference_; }
  [[nodiscard]] const std::vector<ClockResult>& clocks() const { return clocks_; }
  [[nodiscard]] std::uint64_t packets() const { return reader_.packets(); }

 private:
  const PacketReader& reader_;
  std::vector<ClockResult> clocks_;
  std::map<unsigned, std::size_t> by_pid_;  // into clocks_
  unsigned reference_ = kNullPid;
};

}  // namespace analysis
