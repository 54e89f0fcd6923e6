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

template <typename Piece, std::size_t kOffset>
[[gnu::always_inline]] inline std::size_t copy(const Run run, std::uint8_t* to, std::size_t limit) {
  constexpr std::size_t kSize = kPacketSize - kOffset;
  const std::uint8_t* data = run.data;
  std::uint32_t header = run.header;
  std::size_t done = 0;
  for (; done < limit && load_be32(data) == header; ++done) {
    copy_one<Piece, kSize>(to, data + kOffset);
    header = next_header(header);
    data += run.stride;
    to += kSize;
  }
  return done;
}

#if defined(__x86_64__)

const bool g_wide = __builtin_cpu_supports("avx2");

template <std::size_t kOffset>
[[gnu::target("avx2")]] std::size_t copy_wide(const Run& run, std::uint8_t* to, std::size_t limit) {
  return copy<Wide, kOffset>(run, to, limit);
}

#else

constexpr bool g_wide = false;

template <std::size_t kOffset>
std::size_t copy_wide(const Run&, std::uint8_t*, std::size_t) {
  return 0;
}

#endif

template <std::size_t kOffset>
std::size_t copy_run(const Run& run, std::uint8_t* to, std::size_t limit) {
  return g_wide ? copy_wide<kOffset>(run, to, limit) : copy<Narrow, kOffset>(run, to, limit);
}

}  // namespace

std::size_t copy_payloads(const Run& run, std::uint8_t* to, std::size_t limit) {
  return copy_run<4>(run, to, limit);
}

std::size_t copy_packets(const Run& run, std::uint8_t* to, std::size_t limit) {
  return copy_run<0>(run, to, limit);
}

}  // namespace qel::receiver
