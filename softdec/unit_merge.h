// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

#include "softdec/pes_parser.h"

namespace softdec {

/// One stream out of the two PIDs that a high frame rate is sent on: the pictures
/// of both in decoding order.
class UnitMerge {
 public:
  /// Adds units of a PID (0 or 1) and gives what has its place now. What one PID
  /// has is kept until the other one is as far, or ten seconds of it.
  std::vector<PesUnit> add(std::size_t pid, std::vector<PesUnit> units);
  /// The second PID had nothing more to read: gives what of the first one has
  /// waited for half a second of stream. The second may bring nothing at all.
  std::vector<PesUnit> second_is_empty();
  /// Gives everything that is left, in order.
  std::vector<PesUnit> finish();
  void reset();

 private:
  /// How much of a PID, in ticks, is kept waiting for the other one.
  using Patience = std::array<std::int64_t, 2>;
  [[nodiscard]] int next(const Patience& patience) const;
  std::vector<PesUnit> release(const Patience& patience);

  std::array<std::deque<PesUnit>, 2> units_;
};

}  // namespace softdec
