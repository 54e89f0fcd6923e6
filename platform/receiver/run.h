// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "platform/receiver/packet.h"
#include "platform/receiver/ring.h"

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
/// The same with packets as they are.
std::size_t copy_packets(const Run& run, std::uint8_t* to, std::size_t limit);

/// Puts so many bytes of each packet, copied by `copy`, into the ring's free room, as far
/// as that is in one piece, and at most `limit` packets. Gives their number.
template <std::size_t kSize, typename Copy>
std::size_t append_run(const Run& run, Ring& ring, std::size_t limit, Copy copy) {
  const auto tail = ring.tail();
  const std::size_t done =
      copy(run, tail.data(), std::min({limit, run.count, tail.size() / kSize}));
  ring.advance(done * kSize);
  return done;
}

}  // namespace qel::receiver
