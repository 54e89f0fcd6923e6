// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/receiver/stc.h"

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using qel::receiver::Stc;

constexpr std::uint64_t kMsOf27MHz = 27000;
const Stc::Clock::time_point kOneHour{1h};

TEST(Stc, GivesATimeBeforeTheFirstPcr) {
  Stc stc;
  EXPECT_FALSE(stc.read(kOneHour));
  stc.hold(kOneHour);
  stc.resume(kOneHour + 1s);
  EXPECT_FALSE(stc.read(kOneHour + 1s));
  stc.on_pcr(0, kOneHour, false);
  EXPECT_EQ(stc.read(kOneHour), 0U);
  stc.reset();
  EXPECT_FALSE(stc.read(kOneHour));
}

TEST(Stc, RunsOnWithoutEndOrBackwardsAfterTheLastPcr) {
  Stc stc;
  stc.on_pcr(1000 * kMsOf27MHz, kOneHour, false);
  EXPECT_EQ(stc.read(kOneHour + 1us), 1000 * kMsOf27MHz + 27);
  EXPECT_EQ(stc.read(kOneHour + 40ms), 1040 * kMsOf27MHz);
  EXPECT_EQ(stc.read(kOneHour + 100ms), 1100 * kMsOf27MHz);
  EXPECT_EQ(stc.read(kOneHour + 1h), 1100 * kMsOf27MHz);
  EXPECT_EQ(stc.read(kOneHour - 1ms), 1000 * kMsOf27MHz)
      << "a reader may have read its time earlier";
}

struct SecondPcr {
  const char* fault;
  std::uint64_t pcr;
  bool discontinuity;
  std::uint64_t at_once;   // what the clock shows then
  std::uint64_t in_10_ms;  // and a little later
};

// The first PCR said 1000 ms; the second comes 40 ms later.
constexpr SecondPcr kSecondPcrs[] = {
    {"goes back for jitter", 1038 * kMsOf27MHz, false, 1040 * kMsOf27MHz, 1048 * kMsOf27MHz},
    {"goes back where the feed is slower than the stream", 1005 * kMsOf27MHz, false,
     1040 * kMsOf27MHz, 1040 * kMsOf27MHz},
    {"goes back for a repeated PCR", 1000 * kMsOf27MHz, false, 1040 * kMsOf27MHz,
     1040 * kMsOf27MHz},
    {"lags behind a feed faster than the stream", 1500 * kMsOf27MHz, false, 1500 * kMsOf27MHz,
     1510 * kMsOf27MHz},
    {"stays ahead of a small announced step back", 1038 * kMsOf27MHz, true, 1038 * kMsOf27MHz,
     1048 * kMsOf27MHz},
    {"stands still for an hour at an unannounced jump back", 900 * kMsOf27MHz, false,
     900 * kMsOf27MHz, 910 * kMsOf27MHz},
    {"misses a jump ahead", 5000000 * kMsOf27MHz, false, 5000000 * kMsOf27MHz,
     5000010 * kMsOf27MHz},
};

TEST(Stc, FollowsASecondPcrWrongly) {
  for (const SecondPcr& row : kSecondPcrs) {
    Stc stc;
    stc.on_pcr(1000 * kMsOf27MHz, kOneHour, false);
    stc.on_pcr(row.pcr, kOneHour + 40ms, row.discontinuity);
    EXPECT_EQ(stc.read(kOneHour + 40ms), row.at_once) << row.fault;
    EXPECT_EQ(stc.read(kOneHour + 50ms), row.in_10_ms) << row.fault;
  }
}

TEST(Stc, GoesBackWhenLatenessAddsUp) {
  Stc stc;
  std::uint64_t last = 0;
  for (int i = 0; i < 50; ++i) {
    // 10 ms of stream every 60 ms.
    const auto now = kOneHour + i * 60ms;
    stc.on_pcr(static_cast<std::uint64_t>(i) * 10 * kMsOf27MHz, now, false);
    for (const auto later : {0ms, 30ms, 59ms}) {
      const std::uint64_t value = stc.read(now + later).value();
      EXPECT_GE(value, last) << i;
      EXPECT_LE(value, static_cast<std::uint64_t>(i * 10 + 100) * kMsOf27MHz) << i;
      last = value;
    }
  }
}

TEST(Stc, TakesTheWrapForAJump) {
  Stc stc;
  stc.on_pcr(Stc::kWrap - 20 * kMsOf27MHz, kOneHour, false);
  EXPECT_EQ(stc.read(kOneHour + 30ms), 10 * kMsOf27MHz);
  // Ahead of this one, on the other side of the wrap.
  stc.on_pcr(Stc::kWrap - 1, kOneHour + 30ms, false);
  EXPECT_EQ(stc.read(kOneHour + 30ms), 10 * kMsOf27MHz);
  stc.on_pcr(15 * kMsOf27MHz, kOneHour + 35ms, false);
  EXPECT_EQ(stc.read(kOneHour + 36ms), 16 * kMsOf27MHz);
  // A broken extension may take a PCR past its end.
  stc.on_pcr(Stc::kWrap + 211, kOneHour, true);
  EXPECT_EQ(stc.read(kOneHour), 211U);
}

TEST(Stc, RunsWhileTheFeedWaits) {
  Stc stc;
  stc.on_pcr(1000 * kMsOf27MHz, kOneHour, false);
  stc.hold(kOneHour + 10ms);
  stc.hold(kOneHour + 20ms);
  EXPECT_EQ(stc.read(kOneHour + 5ms), 1005 * kMsOf27MHz);
  EXPECT_EQ(stc.read(kOneHour + 10s), 1010 * kMsOf27MHz);
  stc.resume(kOneHour + 10s);
  stc.resume(kOneHour + 11s);
  EXPECT_EQ(stc.read(kOneHour + 10s + 30ms), 1040 * kMsOf27MHz);
  EXPECT_EQ(stc.read(kOneHour + 20s), 1100 * kMsOf27MHz);

  // A PCR that comes while it is held, from a feed that does not wait.
  stc.hold(kOneHour + 20s);
  stc.on_pcr(2000 * kMsOf27MHz, kOneHour + 21s, false);
  EXPECT_EQ(stc.read(kOneHour + 22s), 2000 * kMsOf27MHz);
  stc.resume(kOneHour + 22s);
  EXPECT_EQ(stc.read(kOneHour + 22s + 7ms), 2007 * kMsOf27MHz);
}

}  // namespace
