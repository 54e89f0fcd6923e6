// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <random>

#include "tests/support/ts_builder.h"

namespace fuzz {

using stream::Bytes;

/// The same numbers every time for one seed.
class Random {
 public:
  explicit Random(unsigned seed) : engine_(seed) {}
  /// 0 to `end` - 1.
  std::size_t below(std::size_t end) { return engine_() % end; }
  std::size_t from_to(std::size_t first, std::size_t last) {
    return first + below(last - first + 1);
  }
  bool one_in(std::size_t count) { return below(count) == 0; }
  std::uint8_t byte() { return static_cast<std::uint8_t>(engine_()); }
  Bytes bytes(std::size_t count);

 private:
  std::mt19937 engine_;
};

inline constexpr unsigned kFirstSectionPid = 0x10;
inline constexpr unsigned kSectionPids = 4;
inline constexpr unsigned kFirstPesPid = 0x100;
inline constexpr unsigned kPesPids = 3;
inline constexpr unsigned kTemiPid = 0x1f0;
inline constexpr std::size_t kLargestPes = 6000;

/// What may be wrong with the packets, on the whole one time in so many; 0 for
/// never.
struct Damage {
  std::size_t flipped_bit = 0;  // anywhere but in the sync byte
  std::size_t lost = 0;
  std::size_t repeated = 0;
  std::size_t transport_error = 0;
  std::size_t scrambled = 0;
};

/// Sections, PES packets, PCRs and TEMI descriptors of several PIDs, mixed.
class RandomStream {
 public:
  RandomStream(unsigned seed, const Damage& damage) : random_(seed), damage_(damage) {}
  Bytes packets(std::size_t count);

 private:
  Bytes next(unsigned pid);
  Bytes make(unsigned pid);
  Bytes sections(unsigned pid);
  Bytes temi();
  void spoil(Bytes& packet);
  bool happens(std::size_t one_in) { return one_in > 0 && random_.one_in(one_in); }

  Random random_;
  const Damage damage_;
  stream::Multiplex mux_;
  std::map<unsigned, Bytes> waiting_;  // whole packets, by PID
  std::int64_t pcr_ = 0;
};

}  // namespace fuzz
