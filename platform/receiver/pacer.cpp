// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/receiver/pacer.h"

#include "platform/receiver/stc.h"

namespace qel::receiver {
namespace {

constexpr std::chrono::seconds kJump{1};

/// The way from one PCR to another, the shorter one round the wrap.
std::chrono::nanoseconds difference(std::uint64_t from, std::uint64_t to) {
  constexpr auto kWrap = static_cast<std::int64_t>(Stc::kWrap);
  auto ticks =
      static_cast<std::int64_t>(to % Stc::kWrap) - static_cast<std::int64_t>(from % Stc::kWrap);
  if (ticks > kWrap / 2) ticks -= kWrap;
  if (ticks < -kWrap / 2) ticks += kWrap;
  return std::chrono::nanoseconds(ticks * 1000 / 27);
}

}  // namespace

// Each packet is due as long after the one before as their PCRs are apart, so
// what one waits too long the next waits less.
Pacer::Clock::duration Pacer::delay(unsigned pid, std::uint64_t pcr_27mhz, Clock::time_point now) {
  if (pid_.value_or(pid) != pid) return Clock::duration::zero();
  const std::chrono::nanoseconds step = difference(last_, pcr_27mhz);
  const Clock::time_point due = due_ + step;
  const bool anew = !pid_ || step > kJump || step < -kJump || now - due > kJump;
  pid_ = pid;
  last_ = pcr_27mhz;
  due_ = anew ? now : due;
  return due_ > now ? due_ - now : Clock::duration::zero();
}

}  // namespace qel::receiver
