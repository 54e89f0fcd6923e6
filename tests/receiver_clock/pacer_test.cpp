// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/receiver/pacer.h"

#include <gtest/gtest.h>

#include "platform/receiver/stc.h"

namespace {

using namespace std::chrono_literals;
using qel::receiver::Pacer;
using qel::receiver::Stc;

constexpr std::uint64_t kMs = 27000;
constexpr unsigned kPid = 0x101;
const Pacer::Clock::time_point kStart{1h};

TEST(Pacer, IsDrivenByTwoPidsAtOnce) {
  Pacer pacer;
  EXPECT_FALSE(pacer.pid());
  EXPECT_EQ(pacer.delay(kPid, 1000 * kMs, kStart), 0ms);
  EXPECT_EQ(pacer.delay(kPid + 1, 900000 * kMs, kStart), 0ms);
  EXPECT_EQ(pacer.pid(), kPid);
  EXPECT_EQ(pacer.delay(kPid, 1040 * kMs, kStart), 40ms);
  pacer.reset();
  EXPECT_EQ(pacer.delay(kPid + 1, 900000 * kMs, kStart), 0ms);
  EXPECT_EQ(pacer.delay(kPid + 1, 900001 * kMs, kStart), 1ms);
}

TEST(Pacer, DriftsWhenTheFeederWakesLate) {
  Pacer pacer;
  auto now = kStart;
  std::uint64_t pcr = Stc::kWrap - 3000 * kMs;  // goes through the wrap
  pacer.delay(kPid, pcr % Stc::kWrap, now);
  for (int i = 0; i < 200; ++i) {
    pcr += 40 * kMs;
    now += pacer.delay(kPid, pcr % Stc::kWrap, now) + 3ms;
  }
  EXPECT_EQ(now, kStart + 200 * 40ms + 3ms);
}

struct Jump {
  const char* fault;
  std::int64_t step;                // of the PCR, in ms
  std::chrono::milliseconds after;  // the packet comes then
  std::chrono::milliseconds delay;
  std::chrono::milliseconds next;  // of a packet with a PCR 10 ms later
};

constexpr Jump kJumps[] = {
    {"does not wait a whole second", 1000, 0ms, 1000ms, 1010ms},
    {"waits out a jump ahead", 1001, 0ms, 0ms, 10ms},
    {"waits out a jump of hours ahead", 10000000, 0ms, 0ms, 10ms},
    {"does not catch up after a small delay", 40, 500ms, 0ms, 0ms},
    {"catches up after a long one", 40, 5000ms, 0ms, 10ms},
    {"does not catch up after a small step back", -300, 0ms, 0ms, 0ms},
    {"never waits again after a jump back", -1001, 0ms, 0ms, 10ms},
    {"never waits again after a jump back while late", -900, 200ms, 0ms, 10ms},
    {"never waits again after a jump back by hours", -10000000, 0ms, 0ms, 10ms},
};

TEST(Pacer, TakesAJumpForTimeOrTimeForAJump) {
  constexpr std::uint64_t kFirst = 20000000 * kMs;
  for (const Jump& row : kJumps) {
    Pacer pacer;
    pacer.delay(kPid, kFirst, kStart);
    const std::uint64_t second = static_cast<std::uint64_t>(static_cast<std::int64_t>(kFirst) +
                                                            row.step * std::int64_t{kMs});
    const auto now = kStart + row.after;
    EXPECT_EQ(pacer.delay(kPid, second, now), row.delay) << row.fault;
    EXPECT_EQ(pacer.delay(kPid, second + 10 * kMs, now), row.next) << row.fault;
  }
}

}  // namespace
