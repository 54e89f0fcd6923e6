// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "platform/receiver/packet.h"
#include "platform/receiver/ring.h"

namespace qel::receiver {

/// Up to `count` packets behind one with `header`, of which those are meant that go
/// on with the same PID: the counter is one higher each time, no unit begins, all
/// else is the same.
struct Run {
  std::uint32_t header;
  const std::uint8_t* data;
  std::size_t stride;
  std::size_t count;
};

/// Puts the bytes from `kOffset` on of each packet that belongs to the run into the
/// ring's free room, as far as that is in one piece, and at most `limit` packets.
/// Gives their number.
template <std::size_t kOffset>
inline std::size_t append_run(const Run& run, Ring& ring, std::size_t limit) {
  constexpr std::uint32_t kUnitStart = 0x400000;
  constexpr std::uint32_t kCounter = 0xf;
  constexpr std::size_t kSize = kPacketSize - kOffset;
  const auto tail = ring.tail();
  limit = std::min({limit, run.count, tail.size() / kSize});
  std::uint32_t header = run.header & ~kUnitStart;
  std::size_t done = 0;
  for (; done < limit; ++done) {
    const std::uint8_t* data = run.data + done * run.stride;
    header = (header & ~kCounter) | ((header + 1) & kCounter);
    if (load_be32(data) != header) break;
    copy_bytes(tail.data() + done * kSize, data + kOffset, kSize);
  }
  ring.advance(done * kSize);
  return done;
}

}  // namespace qel::receiver
