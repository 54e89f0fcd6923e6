// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdint>
#include <cstring>

namespace vantrel {

/// Big-endian fields as a transport stream has them, at any alignment. The
/// caller knows that the bytes are there.

inline std::uint16_t read_u16(const std::uint8_t* bytes) {
  return static_cast<std::uint16_t>(bytes[0] << 8 | bytes[1]);
}

inline std::uint32_t read_u24(const std::uint8_t* bytes) {
  return std::uint32_t{bytes[0]} << 16 | read_u16(bytes + 1);
}

inline std::uint32_t read_u32(const std::uint8_t* bytes) {
  std::uint32_t word;
  std::memcpy(&word, bytes, sizeof word);
  return __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? __builtin_bswap32(word) : word;
}

/// section_length of a section, or any length field of twelve bits.
inline std::uint16_t read_length(const std::uint8_t* bytes) { return read_u16(bytes) & 0x0FFF; }

/// A PID, or any field of thirteen bits.
inline std::uint16_t read_pid(const std::uint8_t* bytes) { return read_u16(bytes) & 0x1FFF; }

/// A PTS or DTS of five bytes with its marker bits, in units of 90 kHz.
inline std::uint64_t read_timestamp(const std::uint8_t* bytes) {
  return std::uint64_t{bytes[0] & 0x0EU} << 29 |
         std::uint64_t{read_u16(bytes + 1) & 0xFFFEU} << 14 | read_u16(bytes + 3) >> 1;
}

}  // namespace vantrel
