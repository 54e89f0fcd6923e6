// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/analysis/timeline.h"

#include <algorithm>

namespace analysis {

Timeline::Timeline(const PacketPass& pass, const PacketReader& reader,
                   const std::vector<Reference>& references)
    : reader_(reader) {
  std::vector<unsigned> pids = pass.pids();
  std::sort(pids.begin(), pids.end());
  std::size_t most = 0;
  for (const unsigned pid : pids) {
    Clock clock(pass.record(pid).pcrs);
    if (!clock.usable()) continue;
    if (clock.points().size() > most) reference_ = pid;
    most = std::max(most, clock.points().size());
    by_pid_[pid] = clocks_.size();
    clocks_.push_back({pid, std::move(clock)});
  }
  std::map<unsigned, std::size_t> by_programme;
  for (const Reference& row : references)
    if (row.role == Role::pcr && by_pid_.contains(row.pid))
      by_programme[row.programme] = by_pid_[row.pid];
  for (const Reference& row : references)
    if (row.programme != 0 && by_programme.contains(row.programme))
      by_pid_.try_emplace(row.pid, by_programme[row.programme]);
}

const Clock* Timeline::clock_of(unsigned pid) const {
  const auto found = by_pid_.find(by_pid_.contains(pid) ? pid : reference_);
  return found != by_pid_.end() ? &clocks_[found->second].clock : nullptr;
}

Place Timeline::place(std::uint64_t packet, unsigned pid) const {
  Place place{.packet = packet, .seconds = {}};
  const auto after =
      std::upper_bound(reader_.alignments().begin(), reader_.alignments().end(), packet,
                       [](std::uint64_t at, const Alignment& row) { return at < row.packet; });
  if (after != reader_.alignments().begin()) {
    const Alignment& row = *std::prev(after);
    place.offset = row.offset + (packet - row.packet) * reader_.packet_size();
  }
  if (const Clock* clock = clock_of(pid)) place.seconds = clock->seconds_at(packet);
  return place;
}

}  // namespace analysis
