// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/receiver/stc.h"

#include <algorithm>

namespace qel::receiver {
namespace {

constexpr std::uint64_t ticks(std::chrono::nanoseconds time) {
  return static_cast<std::uint64_t>(time.count()) * 27 / 1000;
}

constexpr std::uint64_t kFreeRunTicks = ticks(Stc::kFreeRun);

/// How far `later` is after `earlier`, going up.
constexpr std::uint64_t distance(std::uint64_t earlier, std::uint64_t later) {
  return (later + Stc::kWrap - earlier) % Stc::kWrap;
}

}  // namespace

// The clock is ahead of the stream by what it ran on at most. A PCR further
// behind than that cannot be late: the stream went back.
void Stc::on_pcr(std::uint64_t pcr_27mhz, Clock::time_point now, bool discontinuity) {
  const std::uint64_t pcr = pcr_27mhz % kWrap;
  const std::uint64_t shown = started_ ? value(now) : pcr;
  const bool late = !discontinuity && distance(pcr, shown) <= kFreeRunTicks;
  reached_ = late ? shown : pcr;
  pcr_ = pcr;
  since_ = now;
  if (held_) held_ = now;
  started_ = true;
}

std::optional<std::uint64_t> Stc::read(Clock::time_point now) const {
  if (!started_) return std::nullopt;
  return value(now);
}

void Stc::hold(Clock::time_point now) {
  if (!held_) held_ = now;
}

void Stc::resume(Clock::time_point now) {
  if (!held_) return;
  since_ += std::max(now - *held_, Clock::duration::zero());
  held_.reset();
}

std::uint64_t Stc::value(Clock::time_point now) const {
  const Clock::duration run = (held_ ? std::min(now, *held_) : now) - since_;
  const std::uint64_t ahead =
      ticks(std::clamp<Clock::duration>(run, Clock::duration::zero(), kFreeRun));
  return (pcr_ + std::max(ahead, distance(pcr_, reached_))) % kWrap;
}

}  // namespace qel::receiver
