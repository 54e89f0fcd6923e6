// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace qel::receiver {

inline constexpr std::size_t kPacketSize = 188;
inline constexpr std::size_t kHeaderSize = 4;
inline constexpr std::uint8_t kSyncByte = 0x47;
inline constexpr unsigned kNullPid = 0x1fff;
/// As the PID of a PES filter: all packets.
inline constexpr unsigned kAllPids = 0x2000;

/// Bits of a packet's first four bytes, as one number.
namespace header_bits {
inline constexpr std::uint32_t kSync = 0xff000000;
inline constexpr std::uint32_t kTransportError = 0x800000;
inline constexpr std::uint32_t kSyncWithoutError = 0x47000000;  // of the two
inline constexpr std::uint32_t kUnitStart = 0x400000;
inline constexpr std::uint32_t kScrambled = 0xc0;
inline constexpr std::uint32_t kAdaptation = 0x20;
inline constexpr std::uint32_t kPayload = 0x10;
inline constexpr std::uint32_t kCounter = 0xf;
}  // namespace header_bits

inline std::uint32_t load_be32(const std::uint8_t* bytes) {
  std::uint32_t value;
  std::memcpy(&value, bytes, sizeof value);
  return __builtin_bswap32(value);
}

/// A transport packet, looked at in place.
class Packet {
 public:
  explicit Packet(const std::uint8_t* bytes) : bytes_(bytes), header_(load_be32(bytes)) {}

  [[nodiscard]] const std::uint8_t* bytes() const { return bytes_; }
  [[nodiscard]] unsigned pid() const { return (header_ >> 8) & 0x1fff; }
  [[nodiscard]] bool unit_start() const { return header_ & header_bits::kUnitStart; }
  [[nodiscard]] bool scrambled() const { return header_ & header_bits::kScrambled; }
  [[nodiscard]] bool has_adaptation() const { return header_ & header_bits::kAdaptation; }
  [[nodiscard]] bool has_payload() const { return header_ & header_bits::kPayload; }
  [[nodiscard]] unsigned counter() const { return header_ & header_bits::kCounter; }
  /// True where the adaptation field is there and long enough to have flags.
  [[nodiscard]] bool has_flags() const { return has_adaptation() && bytes_[4] > 0; }
  [[nodiscard]] bool discontinuity() const { return has_flags() && (bytes_[5] & 0x80); }
  [[nodiscard]] bool has_pcr() const { return has_flags() && (bytes_[5] & 0x10) && bytes_[4] >= 7; }

  /// Program clock reference in units of 27 MHz.
  [[nodiscard]] std::uint64_t pcr() const {
    const std::uint64_t base = (std::uint64_t{load_be32(bytes_ + 6)} << 1) | (bytes_[10] >> 7);
    const std::uint64_t extension = ((bytes_[10] & 1U) << 8) | bytes_[11];
    return base * 300 + extension;
  }

  /// Bytes before the payload; the whole packet where there is none.
  [[nodiscard]] std::size_t payload_offset() const {
    const std::size_t offset = has_adaptation() ? kHeaderSize + 1 + bytes_[4] : kHeaderSize;
    return has_payload() && offset < kPacketSize ? offset : kPacketSize;
  }
  [[nodiscard]] const std::uint8_t* payload() const { return bytes_ + payload_offset(); }
  [[nodiscard]] std::size_t payload_size() const { return kPacketSize - payload_offset(); }

 private:
  const std::uint8_t* bytes_;
  std::uint32_t header_;
};

}  // namespace qel::receiver
