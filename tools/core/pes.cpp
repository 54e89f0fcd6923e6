// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/core/pes.h"

#include <algorithm>
#include <iterator>

namespace tools {
namespace {

constexpr std::size_t kHeaderSize = 9;
/// Lowest stream_id of a PES packet (ISO/IEC 13818-1, table 2-22). In elementary
/// streams of video and audio no start code is that high.
constexpr std::uint8_t kFirstStreamId = 0xBD;

std::uint8_t byte(std::string_view bytes, std::size_t at) {
  return static_cast<std::uint8_t>(bytes[at]);
}

bool begins_packet(const std::string& bytes, std::size_t at) {
  return bytes.compare(at, 3, std::string("\0\0\1", 3)) == 0 &&
         byte(bytes, at + 3) >= kFirstStreamId;
}

/// ISO/IEC 13818-1, 2.4.3.6: private_stream_2, padding_stream, maps and directories
/// have no time stamps.
bool has_long_header(std::uint8_t stream_id) {
  constexpr std::uint8_t kShort[] = {0xBC, 0xBE, 0xBF, 0xF0, 0xF1, 0xF2, 0xF8, 0xFF};
  return std::find(std::begin(kShort), std::end(kShort), stream_id) == std::end(kShort);
}

/// Where the next packet begins, at `from` or behind; npos when not there yet.
std::size_t next_packet(const std::string& bytes, std::size_t from) {
  const std::string prefix("\0\0\1", 3);
  for (std::size_t at = bytes.find(prefix, from); at != std::string::npos;
       at = bytes.find(prefix, at + 1)) {
    if (at + 4 > bytes.size()) return std::string::npos;
    if (begins_packet(bytes, at)) return at;
  }
  return std::string::npos;
}

}  // namespace

std::optional<std::uint64_t> pts_of(std::string_view packet) {
  if (packet.size() < kHeaderSize + 5 || !has_long_header(byte(packet, 3)) ||
      (byte(packet, 7) & 0x80) == 0)
    return std::nullopt;
  const auto bits = [&](std::size_t at) { return std::uint64_t{byte(packet, at)}; };
  return (bits(9) >> 1 & 7) << 30 | bits(10) << 22 | bits(11) >> 1 << 15 | bits(12) << 7 |
         bits(13) >> 1;
}

void PesParser::add(std::string_view data) {
  pending_.append(data);
  for (;;) {
    const std::size_t next = next_packet(pending_, std::max<std::size_t>(searched_, 4));
    if (next == std::string::npos) {
      searched_ = std::max<std::size_t>(pending_.size(), 4) - 3;
      return;
    }
    take(next);
  }
}

void PesParser::finish() {
  if (!pending_.empty()) take(pending_.size());
}

void PesParser::take(std::size_t size) {
  const std::string packet = pending_.substr(0, size);
  pending_.erase(0, size);
  searched_ = 0;
  if (packet.size() < kHeaderSize || !begins_packet(packet, 0)) return;
  packets_++;
  if (const auto pts = pts_of(packet)) {
    first_pts_ = std::min(first_pts_.value_or(*pts), *pts);
    last_pts_ = std::max(last_pts_.value_or(*pts), *pts);
  }
  const std::size_t header = kHeaderSize + byte(packet, 8);
  if (packet.size() > header && payload_.size() < keep_) payload_.append(packet, header);
}

}  // namespace tools
