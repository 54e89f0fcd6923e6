// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstddef>
#include <cstdint>

namespace vantrel {

/// CRC-32/MPEG-2 (ISO/IEC 13818-1, annex A): polynomial 0x04C11DB7, most
/// significant bit first, register preset to all ones, no final inversion.
///
/// Over a section with its CRC_32 field the result is 0 when the section is
/// intact; over no bytes it is 0xFFFFFFFF. Chooses the fastest way the CPU has.
/// Any thread.
std::uint32_t crc32_mpeg(const void* data, std::size_t size);

/// The same on any CPU: sixteen bytes a step, by tables.
std::uint32_t crc32_mpeg_portable(const void* data, std::size_t size);

/// Whether this CPU has the carry-less multiplication that
/// crc32_mpeg_carryless() needs.
bool crc32_mpeg_has_carryless();

/// The same by carry-less multiplication, 64 bytes a step. Only where
/// crc32_mpeg_has_carryless() says so.
std::uint32_t crc32_mpeg_carryless(const void* data, std::size_t size);

}  // namespace vantrel
