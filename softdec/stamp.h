// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdint>

/// Time stamps of ISO/IEC 13818-1: 33 bits of a 90 kHz clock.
namespace softdec {

inline constexpr std::int64_t kTicksPerSecond = 90000;

/// `a` - `b` across the wrap, in ticks.
constexpr std::int64_t difference(std::uint64_t a, std::uint64_t b) {
  constexpr unsigned kUnused = 64 - 33;
  return static_cast<std::int64_t>((a - b) << kUnused) >> kUnused;
}

constexpr std::int64_t to_nanoseconds(std::int64_t ticks) { return ticks * 100000 / 9; }

}  // namespace softdec
