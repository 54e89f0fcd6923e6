// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/core/stream_limit.h"

#include <algorithm>

namespace tools {
namespace {

/// What a network may hold back of a stream that has a clock.
constexpr double kLate = 1;

}  // namespace

bool StreamLimit::is_over() const {
  if (!seconds_) return false;
  const double passed = rates_.seconds();
  return passed >= *seconds_ ||
         (live_ && since_begin_.elapsed() >= *seconds_ + (passed > 0 ? kLate : 0));
}

std::size_t StreamLimit::take(std::span<const std::uint8_t> data) {
  if (!seconds_) return data.size();
  std::size_t taken = 0;
  while (taken < data.size() && !is_over()) {
    const std::size_t piece = std::min<std::size_t>(packet_size_, data.size() - taken);
    rates_.add(data.subspan(taken, piece));
    taken += piece;
  }
  return taken;
}

}  // namespace tools
