// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tests/support/ts_builder.h"

#include <algorithm>
#include <utility>

#include "common/crc32_mpeg.h"

namespace stream {
namespace {

constexpr std::size_t kPayload = 184;

std::uint8_t low(std::uint64_t value) { return static_cast<std::uint8_t>(value); }

/// Makes the last four bytes the CRC of those before them.
Bytes sealed(Bytes section) {
  const std::size_t size = section.size() - 4;
  const std::uint32_t crc = vantrel::crc32_mpeg(section.data(), size);
  for (std::size_t i = 0; i < 4; ++i) section[size + i] = low(crc >> (24 - 8 * i));
  return section;
}

Bytes pes_packet(std::uint8_t stream_id, const Bytes& fields, std::size_t payload, bool bounded) {
  const std::size_t length = bounded ? 3 + fields.size() + payload : 0;
  Bytes bytes = {0, 0, 1, stream_id, low(length >> 8), low(length)};
  bytes = bytes + Bytes{0x80, low(fields.empty() ? 0 : 0x80), low(fields.size())};
  return bytes + fields + counting(payload, stream_id);
}

/// Flags of an adaptation field and what they announce; empty for none.
Bytes adaptation_fields(const Header& header) {
  const unsigned flags = (header.discontinuity ? 0x80U : 0U) | (header.pcr >= 0 ? 0x10U : 0U) |
                         (header.af_descriptors.empty() ? 0U : 1U);
  if (flags == 0) return {};
  Bytes field = {low(flags)};
  if (header.pcr >= 0) {
    const auto base = static_cast<std::uint64_t>(header.pcr) / 300;
    const auto extension = static_cast<std::uint64_t>(header.pcr) % 300;
    const std::uint64_t bits = base << 15 | 0x7e00 | extension;
    for (int shift = 40; shift >= 0; shift -= 8) field.push_back(low(bits >> shift));
  }
  if (header.af_descriptors.empty()) return field;
  const Bytes extension = {low(1 + header.af_descriptors.size()), 0x0f};
  return join({std::move(field), extension, header.af_descriptors});
}

/// The adaptation field that leaves just `payload` bytes; none where nothing
/// is to be filled.
Bytes adaptation_field(const Header& header, std::size_t payload) {
  Bytes field = adaptation_fields(header);
  const std::size_t room = kPayload - payload;
  if (field.empty() && room == 0) return {};
  if (field.empty() && room > 1) field.push_back(0);
  field.resize(room - 1, 0xff);
  field.insert(field.begin(), low(room - 1));
  return field;
}

/// Puts `before` and `behind` bytes around each packet.
Bytes spaced(const Bytes& packets, std::size_t before, std::size_t behind) {
  Bytes out;
  for (std::size_t at = 0; at < packets.size(); at += kPacketSize)
    out += join({Bytes(before), slice(packets, at, kPacketSize), Bytes(behind)});
  return out;
}

}  // namespace

Bytes& operator+=(Bytes& left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

Bytes operator+(Bytes left, const Bytes& right) {
  left += right;
  return left;
}

Bytes join(std::initializer_list<Bytes> pieces) {
  Bytes all;
  for (const Bytes& piece : pieces) all += piece;
  return all;
}

Bytes slice(const Bytes& bytes, std::size_t at, std::size_t count) {
  const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(at);
  return Bytes(first, first + static_cast<std::ptrdiff_t>(count));
}

Bytes counting(std::size_t size, std::uint8_t first) {
  Bytes bytes(size);
  for (std::uint8_t& byte : bytes) byte = first++;
  return bytes;
}

Bytes section(std::uint8_t table_id, std::uint16_t extension, std::size_t size,
              std::uint8_t version) {
  Bytes bytes = counting(size, table_id);
  const Bytes header = {table_id,       low(0xb0 | (size - 3) >> 8),
                        low(size - 3),  low(extension >> 8),
                        low(extension), low(0xc1 | version << 1)};
  std::copy(header.begin(), header.end(), bytes.begin());
  return sealed(std::move(bytes));
}

Bytes short_section(std::uint8_t table_id, std::size_t size) {
  Bytes bytes = counting(size, table_id);
  bytes[0] = table_id;
  bytes[1] = low(0x70 | (size - 3) >> 8);
  bytes[2] = low(size - 3);
  return bytes;
}

Bytes table_section(const Table& table, const Bytes& payload) {
  Bytes bytes = section(table.table_id, table.extension, 8 + payload.size() + 4, table.version);
  if (!table.current) bytes[5] = low(bytes[5] & ~1U);
  bytes[6] = table.number;
  bytes[7] = table.last_number;
  std::copy(payload.begin(), payload.end(), bytes.begin() + 8);
  return sealed(std::move(bytes));
}

Bytes with_bad_crc(Bytes section) {
  section.back() ^= 1;
  return section;
}

Bytes pes(std::uint8_t stream_id, std::size_t payload, bool bounded) {
  return pes_packet(stream_id, {}, payload, bounded);
}

Bytes pes_with_pts(std::uint8_t stream_id, std::uint64_t pts, std::size_t payload, bool bounded) {
  const Bytes fields = {low(0x21 | (pts >> 29 & 0x0e)), low(pts >> 22), low(1 | pts >> 14),
                        low(pts >> 7), low(1 | pts << 1)};
  return pes_packet(stream_id, fields, payload, bounded);
}

Bytes af_descriptor(std::uint8_t tag, const Bytes& body) {
  return Bytes{tag, low(body.size())} + body;
}

Bytes timeline(std::uint8_t timeline_id, std::uint32_t timescale, std::uint32_t time) {
  Bytes body = {0x40, 0x7f, timeline_id};  // a timestamp of 32 bits and nothing else
  for (const std::uint32_t word : {timescale, time})
    for (int shift = 24; shift >= 0; shift -= 8) body.push_back(low(word >> shift));
  return af_descriptor(4, body);
}

Bytes Multiplex::packet(unsigned pid, const Bytes& payload, Header header) {
  const Bytes field = adaptation_field(header, payload.size());
  const unsigned control = (field.empty() ? 0U : 2U) | (payload.empty() ? 0U : 1U);
  const unsigned counter = payload.empty() ? counters_[pid] - 1U : counters_[pid]++;
  const unsigned flags =
      (header.transport_error ? 0x80U : 0U) | (header.unit_start ? 0x40U : 0U) | pid >> 8;
  Bytes bytes = {0x47, low(flags), low(pid),
                 low(header.scrambling | control << 4 | (counter & 15))};
  return std::move(bytes) + field + payload;
}

Bytes Multiplex::sections(unsigned pid, const std::vector<Bytes>& list, std::size_t offset) {
  Bytes all(offset);
  std::vector<std::size_t> starts;
  for (const Bytes& each : list) {
    starts.push_back(all.size());
    all += each;
  }
  Bytes out;
  for (std::size_t at = 0; at < all.size();) {
    const auto start = std::lower_bound(starts.begin(), starts.end(), at);
    // A pointer_field takes a byte itself: what begins in the last one waits.
    Header header;
    header.unit_start = start != starts.end() && *start - at < kPayload - 1;
    Bytes payload;
    payload.reserve(kPayload);
    if (header.unit_start) payload.push_back(low(*start - at));
    const std::size_t count = std::min(all.size() - at, kPayload - payload.size());
    payload += slice(all, at, count);
    payload.resize(kPayload, 0xff);
    out += packet(pid, payload, header);
    at += count;
  }
  return out;
}

Bytes Multiplex::unit(unsigned pid, const Bytes& bytes, std::int64_t pcr) {
  Bytes out;
  Header header{.unit_start = true, .pcr = pcr};
  for (std::size_t at = 0, count = 0; at < bytes.size(); at += count) {
    const std::size_t fields = adaptation_fields(header).size();
    count = std::min(bytes.size() - at, fields > 0 ? kPayload - 1 - fields : kPayload);
    out += packet(pid, slice(bytes, at, count), header);
    header = {};
  }
  return out;
}

Bytes Multiplex::null_packets(std::size_t count) {
  Bytes out;
  for (std::size_t i = 0; i < count; ++i) out += packet(kNullPid, Bytes(kPayload));
  return out;
}

Bytes without_packet(const Bytes& packets, std::size_t index) {
  const std::size_t behind = (index + 1) * kPacketSize;
  return slice(packets, 0, index * kPacketSize) + slice(packets, behind, packets.size() - behind);
}

Bytes with_repeated(const Bytes& packets, std::size_t index) {
  const std::size_t behind = (index + 1) * kPacketSize;
  return join({slice(packets, 0, behind), slice(packets, index * kPacketSize, kPacketSize),
               slice(packets, behind, packets.size() - behind)});
}

Bytes with_transport_error(Bytes packets, std::size_t index) {
  packets[index * kPacketSize + 1] |= 0x80;
  return packets;
}

Bytes with_scrambling(Bytes packets, std::size_t index) {
  packets[index * kPacketSize + 3] |= kScrambled;
  return packets;
}

Bytes with_timestamps(const Bytes& packets) { return spaced(packets, 4, 0); }

Bytes with_parity(const Bytes& packets) { return spaced(packets, 0, 16); }

}  // namespace stream
