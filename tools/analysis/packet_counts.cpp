// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/analysis/packet_counts.h"

namespace analysis {
namespace {

/// PCRs further apart are a jump.
constexpr double kLongestStep = 1;

}  // namespace

void PacketCounts::packet(const std::uint8_t* bytes, std::uint64_t number) {
  packets_++;
  const unsigned pid = packet_pid(bytes);
  pids_[pid].packets++;
  if (is_scrambled(bytes)) pids_[pid].scrambled++;
  const auto pcr = packet_pcr(bytes);
  if (!pcr) return;
  const auto [found, first] = runs_.try_emplace(pid);
  Run& run = found->second;
  const double passed = pcr_difference(run.last, *pcr);
  if (!first && passed >= 0 && passed < kLongestStep) {
    run.seconds += passed;
    run.packets += number - run.last_packet;
  }
  run.last = *pcr;
  run.last_packet = number;
}

PacketCounts::Run PacketCounts::longest() const {
  Run longest;
  for (const auto& [pid, run] : runs_)
    if (run.seconds > longest.seconds) longest = run;
  return longest;
}

std::optional<double> PacketCounts::bits_per_second() const {
  const Run run = longest();
  if (run.seconds <= 0) return std::nullopt;
  return static_cast<double>(run.packets) * kPacketBits / run.seconds;
}

std::optional<double> PacketCounts::bits_per_second(std::uint64_t packets) const {
  const auto whole = bits_per_second();
  if (!whole || packets_ == 0) return std::nullopt;
  return *whole * static_cast<double>(packets) / static_cast<double>(packets_);
}

}  // namespace analysis
