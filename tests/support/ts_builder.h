// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdint>
#include <initializer_list>
#include <map>
#include <string>
#include <vector>

/// Transport streams for tests, packet by packet: sections and PES packets,
/// packets that carry them, and what can go wrong with those.
///
///     stream::Multiplex mux;
///     feed(mux.sections(0x12, {stream::section(0x4e, 1, 100), stream::section(0x4e, 2, 300)}));
///     feed(mux.unit(0x100, stream::pes(0xe0, 5000, false)));
namespace stream {

using Bytes = std::vector<std::uint8_t>;

inline constexpr std::size_t kPacketSize = 188;
inline constexpr std::uint8_t kScrambled = 0xc0;
inline constexpr unsigned kNullPid = 0x1fff;

Bytes& operator+=(Bytes& left, const Bytes& right);
Bytes operator+(Bytes left, const Bytes& right);
/// In order: the operands of + may be made in any.
Bytes join(std::initializer_list<Bytes> pieces);
Bytes slice(const Bytes& bytes, std::size_t at, std::size_t count);
Bytes counting(std::size_t size, std::uint8_t first = 0);
inline std::string text(const Bytes& bytes) { return {bytes.begin(), bytes.end()}; }

// Sections

/// A section of `size` bytes: long form with a CRC, the payload counting.
Bytes section(std::uint8_t table_id, std::uint16_t extension, std::size_t size,
              std::uint8_t version = 0);
/// A section without syntax and CRC, of any size from 3 on; a size over 4096
/// gives one that declares so.
Bytes short_section(std::uint8_t table_id, std::size_t size);

/// The header of a section in long form.
struct Table {
  std::uint8_t table_id = 0;
  std::uint16_t extension = 0;
  std::uint8_t version = 0;
  bool current = true;
  std::uint8_t number = 0;
  std::uint8_t last_number = 0;
};

/// A section in long form around a payload.
Bytes table_section(const Table& table, const Bytes& payload);
/// The same section with one bit of its CRC wrong.
Bytes with_bad_crc(Bytes section);

// PES packets

/// A PES packet with `payload` bytes behind its header.
Bytes pes(std::uint8_t stream_id, std::size_t payload, bool bounded = true);
/// The same with a presentation time of 90 kHz.
Bytes pes_with_pts(std::uint8_t stream_id, std::uint64_t pts, std::size_t payload,
                   bool bounded = true);

// Packets

struct Header {
  bool unit_start = false;
  bool transport_error = false;
  std::uint8_t scrambling = 0;
  bool discontinuity = false;
  std::int64_t pcr = -1;  // of 27 MHz
  Bytes af_descriptors;   // in the adaptation field's extension
};

/// An AF descriptor (ISO/IEC 13818-1, annex U): 4 timeline, 5 location, 6 base URL.
Bytes af_descriptor(std::uint8_t tag, const Bytes& body);
/// A timeline descriptor that says where its media time stands.
Bytes timeline(std::uint8_t timeline_id, std::uint32_t timescale, std::uint32_t time);

/// Makes packets and counts them per PID.
class Multiplex {
 public:
  /// A packet; what the payload does not fill, an adaptation field does. Without
  /// payload the continuity counter stays.
  Bytes packet(unsigned pid, const Bytes& payload, Header header = {});

  /// Sections packed one behind the other, a pointer_field wherever one begins.
  /// The first begins `offset` bytes into the payload, behind the end of some
  /// section that came before.
  Bytes sections(unsigned pid, const std::vector<Bytes>& list, std::size_t offset = 0);

  /// One PES packet from a payload unit start on, with a PCR, if any, in its first packet.
  Bytes unit(unsigned pid, const Bytes& bytes, std::int64_t pcr = -1);

  Bytes null_packets(std::size_t count);

  /// As if `count` packets of the PID had been lost.
  void skip(unsigned pid, unsigned count) { counters_[pid] += count; }

 private:
  std::map<unsigned, unsigned> counters_;
};

// Whole streams of 188-byte packets

/// Without the packet of that index.
Bytes without_packet(const Bytes& packets, std::size_t index);
/// With that packet sent twice.
Bytes with_repeated(const Bytes& packets, std::size_t index);
/// With that packet marked as damaged.
Bytes with_transport_error(Bytes packets, std::size_t index);
/// With that packet marked as scrambled.
Bytes with_scrambling(Bytes packets, std::size_t index);
/// Packets of 192 bytes: a time stamp before each.
Bytes with_timestamps(const Bytes& packets);
/// Packets of 204 bytes: parity behind each.
Bytes with_parity(const Bytes& packets);

}  // namespace stream
