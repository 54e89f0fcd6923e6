// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "common/byte_reader.h"

// Fields of a packet (ISO/IEC 13818-1, 2.4.3). Its 188 bytes are there.
namespace analysis {

inline constexpr std::size_t kPacketLength = 188;
inline constexpr double kPacketBits = 188 * 8;
inline constexpr unsigned kPids = 8192;

inline unsigned packet_pid(const std::uint8_t* packet) { return vantrel::read_pid(packet + 1); }

inline bool is_scrambled(const std::uint8_t* packet) { return (packet[3] & 0xC0) != 0; }

inline bool is_unit_start(const std::uint8_t* packet) { return (packet[1] & 0x40) != 0; }

/// What lies behind header and adaptation field; empty where there is nothing.
inline std::span<const std::uint8_t> packet_payload(const std::uint8_t* packet) {
  constexpr std::size_t kHeader = 4;
  const std::size_t field = (packet[3] & 0x20) != 0 ? std::size_t{1} + packet[4] : 0;
  if ((packet[3] & 0x10) == 0 || kHeader + field >= kPacketLength) return {};
  return {packet + kHeader + field, kPacketLength - kHeader - field};
}

/// Program clock reference in 27 MHz, where the packet has one (2.4.3.5).
inline std::optional<std::uint64_t> packet_pcr(const std::uint8_t* packet) {
  constexpr std::size_t kWithPcr = 7;
  if ((packet[3] & 0x20) == 0 || packet[4] < kWithPcr || (packet[5] & 0x10) == 0)
    return std::nullopt;
  const std::uint64_t base = std::uint64_t{vantrel::read_u32(packet + 6)} << 1 | packet[10] >> 7;
  return base * 300 + (vantrel::read_u16(packet + 10) & 0x1FFU);
}

/// From one PCR to another in seconds, the shorter way round.
inline double pcr_difference(std::uint64_t from, std::uint64_t to) {
  constexpr std::uint64_t kWrap = (std::uint64_t{1} << 33) * 300;
  constexpr double kFrequency = 27e6;
  const std::uint64_t ahead = (to + kWrap - from) % kWrap;
  return ahead < kWrap / 2 ? static_cast<double>(ahead) / kFrequency
                           : -static_cast<double>(kWrap - ahead) / kFrequency;
}

}  // namespace analysis
