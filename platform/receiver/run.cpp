// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/receiver/run.h"

#include <cstring>

namespace qel::receiver {
namespace {

// What one instruction loads and stores.
using Narrow [[gnu::vector_size(16)]] = std::uint8_t;
using Wide [[gnu::vector_size(32)]] = std::uint8_t;

/// The last piece goes over the end of the one before.
template <typename Piece, std::size_t kSize>
[[gnu::always_inline]] inline void copy_one(std::uint8_t* to, const std::uint8_t* from) {
  const auto copy = [&](std::size_t at) {
    Piece piece;
    std::memcpy(&piece, from + at, sizeof piece);
    std::memcpy(to + at, &piece, sizeof piece);
  };
  for (std::size_t at = 0; at + sizeof(Piece) < kSize; at += sizeof(Piece)) copy(at);
  copy(kSize - sizeof(Piece));
}

template <typename Piece>
[[gnu::always_inline]] inline std::size_t payloads(const Run run, std::uint8_t* to,
                                                   std::size_t limit) {
  constexpr std::size_t kSize = kPacketSize - kHeaderSize;
  const std::uint8_t* data = run.data;
  std::uint32_t header = run.header;
  std::size_t done = 0;
  for (; done < limit && load_be32(data) == header; ++done) {
    copy_one<Piece, kSize>(to, data + kHeaderSize);
    header = next_header(header);
    data += run.stride;
    to += kSize;
  }
  return done;
}

template <typename Piece>
[[gnu::always_inline]] inline std::size_t recorded(const RecordedRun run, std::uint8_t* to) {
  using namespace header_bits;
  const std::uint32_t looked_at = kSync | kTransportError | kPayload | run.wanted_bits;
  const std::uint8_t* data = run.data;
  std::uint64_t scrambled = 0;
  std::size_t done = 0;
  for (; done < run.count; ++done) {
    const Packet packet(data);
    auto& [state, route] = run.pids[packet.pid()];
    const std::uint32_t header = load_be32(data);
    if ((header & looked_at) != (kSyncWithoutError | kPayload)) break;
    if (pid_state::news(header, state) != pid_state::kWanted) break;
    if (!route || !route->recorded) break;
    if ((state & pid_state::kClock) && packet.has_pcr()) break;
    copy_one<Piece, kPacketSize>(to, data);
    state = pid_state::counted(state, header);
    scrambled += packet.scrambled();
    ++route->recorded->records;
    route->recorded->bytes += kPacketSize;
    data += run.stride;
    to += kPacketSize;
  }
  *run.scrambled += scrambled;
  return done;
}

#if defined(__x86_64__)

const bool g_wide = __builtin_cpu_supports("avx2");

#define WIDE [[gnu::target("avx2")]]

#else

constexpr bool g_wide = false;

#define WIDE

#endif

WIDE std::size_t payloads_wide(const Run& run, std::uint8_t* to, std::size_t limit) {
  return payloads<Wide>(run, to, limit);
}

WIDE std::size_t recorded_wide(const RecordedRun& run, std::uint8_t* to) {
  return recorded<Wide>(run, to);
}

}  // namespace

std::size_t copy_payloads(const Run& run, std::uint8_t* to, std::size_t limit) {
  return g_wide ? payloads_wide(run, to, limit) : payloads<Narrow>(run, to, limit);
}

std::size_t copy_recorded(const RecordedRun& run, std::uint8_t* to) {
  return g_wide ? recorded_wide(run, to) : recorded<Narrow>(run, to);
}

}  // namespace qel::receiver
