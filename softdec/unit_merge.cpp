// SPDX-License-Identifier: LGPL-2.1-or-later
#include "softdec/unit_merge.h"

#include <iterator>
#include <utility>

#include "softdec/stamp.h"

namespace softdec {
namespace {

constexpr std::int64_t kPatience = kTicksPerSecond / 2;
constexpr std::int64_t kLimit = 10 * kTicksPerSecond;
constexpr int kNone = -1;

std::int64_t span_of(const std::deque<PesUnit>& units) {
  const auto newest = units.back().order();
  return newest ? difference(*newest, *units.front().order()) : 0;
}

}  // namespace

std::vector<PesUnit> UnitMerge::add(std::size_t pid, std::vector<PesUnit> units) {
  std::move(units.begin(), units.end(), std::back_inserter(units_[pid]));
  return release({kLimit, kLimit});
}

std::vector<PesUnit> UnitMerge::second_is_empty() {
  return units_[1].empty() ? release({kPatience, kLimit}) : std::vector<PesUnit>();
}

std::vector<PesUnit> UnitMerge::finish() { return release({0, 0}); }

void UnitMerge::reset() {
  for (auto& units : units_) units.clear();
}

std::vector<PesUnit> UnitMerge::release(const Patience& patience) {
  std::vector<PesUnit> out;
  for (int pid = next(patience); pid != kNone; pid = next(patience)) {
    auto& units = units_[static_cast<std::size_t>(pid)];
    out.push_back(std::move(units.front()));
    units.pop_front();
  }
  return out;
}

/// Whose unit comes next. One without a time goes with the one before it.
int UnitMerge::next(const Patience& patience) const {
  for (int pid = 0; pid < 2; ++pid) {
    const auto& own = units_[static_cast<std::size_t>(pid)];
    const auto& other = units_[static_cast<std::size_t>(1 - pid)];
    if (own.empty()) continue;
    if (!own.front().order()) return pid;
    if (other.empty() && span_of(own) >= patience[static_cast<std::size_t>(pid)]) return pid;
    if (!other.empty() && other.front().order() &&
        difference(*own.front().order(), *other.front().order()) <= 0)
      return pid;
  }
  return kNone;
}

}  // namespace softdec
