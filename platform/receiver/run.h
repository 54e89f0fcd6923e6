// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/receiver/packet.h"
#include "platform/receiver/pid_table.h"

namespace qel::receiver {

/// Up to `count` packets, of which those are meant that go on from one to the next:
/// the first has `header`, each other one the counter that follows and all else the same.
struct Run {
  std::uint32_t header;
  const std::uint8_t* data;
  std::size_t stride;
  std::size_t count;
};

/// What a packet with payload alone has that goes on behind one with `header`.
inline std::uint32_t next_header(std::uint32_t header) {
  using namespace header_bits;
  return (header & ~(kUnitStart | kAdaptation | kCounter)) | ((header + 1) & kCounter);
}

/// Copies what lies behind the header of each packet of the run, at most `limit` of them,
/// one behind the other. Gives their number.
std::size_t copy_payloads(const Run& run, std::uint8_t* to, std::size_t limit);

/// Up to `count` packets, of which those are meant up to the first that needs more than
/// to be recorded: of a PID that others want too, repeated or behind a loss, with a PCR
/// that is followed.
struct RecordedRun {
  PidTable::Entry* pids;
  const std::uint8_t* data;
  std::size_t stride;
  std::size_t count;
  std::uint32_t wanted_bits;  // of a header: others want what has them
  std::uint64_t* scrambled;   // counts those that are
};

/// Copies the packets of the run one behind the other, and counts them. Gives their number.
std::size_t copy_recorded(const RecordedRun& run, std::uint8_t* to);

}  // namespace qel::receiver
