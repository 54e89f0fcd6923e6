// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

#include "platform/receiver/packet.h"
#include "platform/receiver/ring.h"
#include "platform/receiver/section_assembler.h"
#include "platform/receiver/section_matcher.h"

namespace qel::receiver {

class FilterNode;

/// A section filter on a PID: what the walk over them looks at, and its node.
struct SectionEntry {
  SectionMatcher matcher;
  std::uint64_t first_serial;  // sections begun earlier are not for it
  FilterNode* node;
  bool check_crc;
};

/// Where the packets of one PID of one input go. Kept once made: a feeder that
/// waits in the middle of a packet comes back to it.
struct Route {
  /// The one PES or record filter that gets the packets; nullptr where there is none, or
  /// more.
  FilterNode* only = nullptr;
  /// What it passes on where it records; nullptr where it does not.
  Ring::Counters* recorded = nullptr;

  std::vector<SectionEntry> sections;
  std::vector<FilterNode*> pes;      // taps and decoder filters
  std::vector<FilterNode*> packets;  // get whole packets on their own node
  std::vector<FilterNode*> record;   // get whole packets on the record node
  std::vector<FilterNode*> clocks;   // follow the PCR
  SectionAssembler assembler;

  [[nodiscard]] bool empty() const {
    return sections.empty() && pes.empty() && packets.empty() && record.empty() && clocks.empty();
  }
};

/// One word a PID, so that a packet nobody wants costs one load and one store:
/// bits 0 to 3 the counter that comes next, bit 4 set once that is known, bits
/// 8 to 12 those of bits 0 to 4 not to compare, flags, and from bit 16 the
/// number of packets.
namespace pid_state {
inline constexpr std::uint64_t kCounter = 0xf;
inline constexpr std::uint64_t kKnown = 0x10;
inline constexpr std::uint64_t kCompared = 0x1f;
inline constexpr std::uint64_t kClock = 0x20;  // a clock or the pace follows its PCRs
inline constexpr unsigned kIgnoreShift = 8;
inline constexpr std::uint64_t kWanted = 0x2000;
inline constexpr std::uint64_t kRepeated = 0x4000;  // the last packet was a repeat
inline constexpr std::uint64_t kOnePacket = 0x10000;
inline constexpr unsigned kCountShift = 16;

/// Zero if the packet brings nothing new: the counter is the one expected, it
/// has a payload, and nobody wants it.
inline std::uint64_t news(std::uint32_t header, std::uint64_t pid) {
  return ((header ^ pid) & ~(pid >> kIgnoreShift) & kCompared) | (pid & kWanted);
}

/// The state of a PID after so many packets in order, the last with `header`.
inline std::uint64_t counted(std::uint64_t pid, std::uint32_t header, std::uint64_t packets = 1) {
  return ((pid + packets * kOnePacket) & ~(kCounter | kRepeated)) | ((header + 1) & kCounter);
}
}  // namespace pid_state

/// The PIDs of one input. All of it is guarded by the demux's lock.
class PidTable {
 public:
  /// What each packet needs, in one cache line.
  struct Entry {
    std::uint64_t state;  // pid_state
    Route* route;         // nullptr where nobody ever wanted the PID
  };
  /// Counts of what seldom happens.
  struct Rare {
    std::uint32_t discontinuities;
    std::uint32_t crc_errors;
    std::uint64_t sections;
  };

  PidTable();

  [[nodiscard]] Entry* entries() { return entries_.get(); }
  [[nodiscard]] Rare& rare(unsigned pid) { return rare_.get()[pid]; }
  /// The route of a PID, or nullptr; kAllPids has one too.
  [[nodiscard]] Route* route(unsigned pid) { return entries_.get()[pid].route; }
  Route& make_route(unsigned pid);
  /// To be called when a route has changed, or whether the PID sets the pace.
  void update_wanted(unsigned pid, bool paces);
  [[nodiscard]] std::uint64_t packets(unsigned pid) const {
    return entries_.get()[pid].state >> pid_state::kCountShift;
  }
  /// Forgets counters of continuity and sections in progress.
  void forget_progress();
  void reset_counters();

 private:
  static constexpr std::size_t kPids = 0x2000;
  struct Free {
    void operator()(void* memory) const { std::free(memory); }
  };

  // Zero pages until the PID occurs.
  std::unique_ptr<Entry[], Free> entries_;  // routes point into made_
  std::unique_ptr<Rare[], Free> rare_;
  std::vector<std::unique_ptr<Route>> made_;
};

}  // namespace qel::receiver
