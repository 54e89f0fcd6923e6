// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gtest/gtest.h>

#include "softdec/pes_parser.h"
#include "softdec/timeline.h"
#include "softdec/unit_merge.h"
#include "tests/support/ts_builder.h"

namespace softdec {
namespace {

using stream::Bytes;
using stream::operator+;
using stream::operator+=;

Bytes with_length(Bytes packet, unsigned length) {
  packet[4] = static_cast<std::uint8_t>(length >> 8);
  packet[5] = static_cast<std::uint8_t>(length);
  return packet;
}

Bytes cut_into_packets(const Bytes& bytes, std::size_t piece, std::size_t* units) {
  PesParser parser;
  Bytes out;
  const auto take = [&](const std::vector<PesUnit>& found) {
    for (const PesUnit& unit : found) out += unit.payload;
    for (const PesUnit& unit : found) *units += unit.pts ? 1 : 0;
  };
  for (std::size_t at = 0; at < bytes.size(); at += piece)
    take(parser.add(&bytes[at], std::min(piece, bytes.size() - at)));
  take(parser.finish());
  return out;
}

TEST(PesParser, KeepsEveryByteOfAStreamHoweverItsLengthsAreWrongAndItsBytesCut) {
  const Bytes open = stream::pes_with_pts(0xE0, 1000, 700, false);
  const Bytes closed = stream::pes_with_pts(0xE0, 2000, 700, true);
  const struct {
    const char* what;
    Bytes packet;
  } cases[] = {
      {"no length", open},
      {"length", closed},
      {"more than its length", with_length(open, 300)},
      {"shorter than its own header", with_length(open, 2)},
      {"less than its length", with_length(open, 5000)},
  };
  for (const auto& row : cases)
    for (const std::size_t piece : {1, 7, 188, 100000}) {
      SCOPED_TRACE(::testing::Message() << row.what << " in pieces of " << piece);
      const Bytes payload = stream::counting(700, 0xE0);
      std::size_t units = 0;
      EXPECT_EQ(cut_into_packets(row.packet + closed + row.packet, piece, &units),
                payload + payload + payload);
      EXPECT_EQ(units, 3U);
    }
}

PesUnit unit_at(std::uint64_t stamp) { return {{}, stamp, {}, false}; }

TEST(UnitMerge, PutsTwoPidsIntoDecodingOrderAcrossTheWrap) {
  constexpr std::uint64_t kWrap = std::uint64_t{1} << 33;
  UnitMerge merge;
  std::vector<std::uint64_t> order;
  const auto take = [&](const std::vector<PesUnit>& units) {
    for (const PesUnit& unit : units) order.push_back(*unit.pts);
  };
  take(merge.add(0, {unit_at(kWrap - 3600), unit_at(0), unit_at(3600)}));
  EXPECT_TRUE(order.empty());
  take(merge.add(1, {unit_at(kWrap - 1800), unit_at(1800)}));
  take(merge.finish());
  EXPECT_EQ(order, (std::vector<std::uint64_t>{kWrap - 3600, kWrap - 1800, 0, 1800, 3600}));
  for (std::uint64_t at = 0; at <= 90000; at += 3600) take(merge.add(0, {unit_at(at)}));
  take(merge.second_is_empty());
  EXPECT_GT(order.size(), 5U) << "a second PID that brings nothing holds up the first";
}

/// A pipeline's clocks as the case has them.
struct FixedClocks : Clocks {
  [[nodiscard]] std::optional<std::int64_t> running_time() const override { return 0; }
  [[nodiscard]] std::uint64_t base_time() const override { return base; }
  [[nodiscard]] bool live() const override { return is_live; }
  [[nodiscard]] std::optional<std::uint64_t> system_time() const override { return system; }
  std::uint64_t base = 0;
  bool is_live = false;
  std::optional<std::uint64_t> system;
};

TEST(Timeline, KeepsSoundAndPictureTogetherOverWrapsAndJumps) {
  constexpr std::uint64_t kLast = (std::uint64_t{1} << 33) - 1;
  const FixedClocks clocks;
  Place video(Timeline::of(&clocks), false);
  Place audio(Timeline::of(&clocks), false);
  video.report(kLast - 8999);
  audio.report(kLast - 17999);  // a tenth of a second before the picture
  const auto start = *audio.running_time(kLast - 17999, clocks);
  const auto at = [&](Place& place, std::uint64_t stamp) {
    return (*place.running_time(stamp, clocks) - start) / 1000000;
  };
  EXPECT_EQ(at(video, kLast - 8999), 100);
  EXPECT_EQ(at(video, 8999), 299) << "wrap";
  EXPECT_EQ(at(audio, 0), 200) << "wrap";
  const auto jumped = at(video, 900'000'000);
  EXPECT_GE(jumped, 299) << "goes on where it was";
  EXPECT_LE(jumped, 600);
  EXPECT_EQ(at(audio, 900'000'000 - 9000), jumped - 100) << "follows into the same epoch";
}

TEST(Timeline, ShowsALiveStreamWhenItsClockSaysSoAgainAfterAPause) {
  FixedClocks clocks;
  clocks.is_live = true;
  clocks.system = 90000;
  Place place(Timeline::of(&clocks), false);
  EXPECT_EQ(place.running_time(180000, clocks), 1'000'000'000);
  clocks.base = 5;
  clocks.system = 450000;
  EXPECT_EQ(place.running_time(540000, clocks), 1'000'000'000);
}

}  // namespace
}  // namespace softdec
