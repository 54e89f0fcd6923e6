// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tests/receiver/fixture.h"

namespace {

using stream::Bytes;
using Sizes = std::vector<int>;
using Steady = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr unsigned kClockPid = 0x1e0;
constexpr std::int64_t kSecond = 27'000'000;
constexpr std::uint64_t kFreeRun = 27'000'000 / 10;  // no clock runs on for longer

class ClockTest : public ReceiverTest {
 protected:
  Bytes pcr(unsigned pid, std::int64_t value, bool payload = false) {
    return mux.packet(pid, payload ? stream::counting(100) : Bytes(), {.pcr = value});
  }
  /// The clock's value, or -errno.
  static std::int64_t stc(TestNode& node, unsigned number = 0) {
    dmx_stc stc{};
    stc.num = number;
    const int result = node.control(KWRX_DMX_GET_STC, &stc);
    if (result < 0) return result;
    EXPECT_EQ(stc.base, 300U);
    return static_cast<std::int64_t>(stc.stc);
  }
  static void expect_near(std::int64_t value, std::int64_t pcr, const char* what) {
    EXPECT_GE(value, pcr) << what;
    EXPECT_LE(value, pcr + static_cast<std::int64_t>(kFreeRun)) << what;
  }
};

TEST_F(ClockTest, ClockIsReadWithoutAPcrOrFollowsAnotherPid) {
  TestNode node("qel_demux0");
  EXPECT_EQ(stc(node), -EAGAIN);
  EXPECT_EQ(stc(node, 4), -EINVAL);
  node.pes(kClockPid, DMX_OUT_DECODER, DMX_PES_PCR0);
  EXPECT_EQ(stc(node), -EAGAIN);
  feed(pcr(kClockPid + 1, 5 * kSecond));
  EXPECT_EQ(stc(node), -EAGAIN);
  feed(pcr(kClockPid, 7 * kSecond, true));
  expect_near(stc(node), 7 * kSecond, "first");
  node.control(KWRX_DMX_START);
  EXPECT_EQ(stc(node), -EAGAIN);
  // A PID of which more than the clock is wanted.
  TestNode record("qel_dvr0", O_RDONLY | O_NONBLOCK);
  for (const dmx_output output : {DMX_OUT_TAP, DMX_OUT_TS_TAP}) {
    node.pes(kClockPid, output, DMX_PES_PCR0);
    for (const int second : {8, 9}) {
      feed(pcr(kClockPid, second * kSecond, true));
      expect_near(stc(node), second * kSecond, "tapped or recorded");
    }
  }
}

TEST_F(ClockTest, NumberMeansTheWrongPcrFilter) {
  TestNode second("qel_demux0"), first("qel_demux0");
  first.pes(kClockPid, DMX_OUT_DECODER, DMX_PES_PCR2);
  second.pes(kClockPid + 1, DMX_OUT_DECODER, DMX_PES_PCR1);
  feed(pcr(kClockPid, 10 * kSecond));
  feed(pcr(kClockPid + 1, 20 * kSecond));
  expect_near(stc(first, 2), 10 * kSecond, "its own");
  expect_near(stc(first, 1), 20 * kSecond, "the other's");
  expect_near(stc(first, 0), 10 * kSecond, "none: that which runs longest");
  first.control(KWRX_DMX_STOP);
  expect_near(stc(first, 2), 20 * kSecond, "the one that is left");
}

TEST_F(ClockTest, ClockOfAnotherInputOrDemuxIsSet) {
  TestNode node("qel_demux0");
  node.pes(kClockPid, DMX_OUT_DECODER, DMX_PES_PCR0, DMX_IN_FRONTEND);
  feed(pcr(kClockPid, 5 * kSecond), DMX_IN_DVR);
  EXPECT_EQ(stc(node), -EAGAIN);
  TestNode other("qel_demux1");
  feed(pcr(kClockPid, 5 * kSecond), DMX_IN_FRONTEND);
  EXPECT_EQ(stc(other), -EAGAIN);
  expect_near(stc(node), 5 * kSecond, "its input");
}

TEST_F(ClockTest, ClockRunsOnWhileTheFeedWaits) {
  TestNode clock("qel_demux0"), full("qel_demux0");
  clock.pes(kClockPid, DMX_OUT_DECODER, DMX_PES_PCR0);
  full.buffer(1024);
  full.section(0x12);
  const Bytes data = stream::join({pcr(kClockPid, 5 * kSecond),
                                   mux.sections(0x12, {stream::section(0x42, 1, 900)}),
                                   mux.sections(0x12, {stream::section(0x42, 1, 901)})});
  Background feeder([&] { return feed(data); });
  ASSERT_TRUE(full.readable(20000));
  EXPECT_FALSE(feeder.done_within(20ms));  // it waits by now
  const std::int64_t before = stc(clock);
  EXPECT_FALSE(feeder.done_within(20ms));
  EXPECT_EQ(stc(clock), before);
  full.read();
  EXPECT_EQ(feeder.result(), 0);
}

class PaceTest : public ClockTest {
 protected:
  void TearDown() override { qel_receiver_set_pacing(0, 0); }
  /// A PCR every 20 ms on two PIDs, and one that goes back far.
  Bytes half_a_second() {
    Bytes out;
    for (int i = 0; i <= 25; ++i) {
      out += pcr(kClockPid, kSecond + i * kSecond / 50, true);
      out += pcr(kClockPid + 1, 1000 * kSecond - i * 900 * kSecond / 25, true);
    }
    return out;
  }
  /// Six minutes, by steps that are no jumps.
  Bytes minutes() {
    Bytes out;
    for (int i = 0; i < 400; ++i) out += pcr(kClockPid, i * kSecond * 9 / 10);
    return out;
  }
};

TEST_F(PaceTest, LiveInputIsNotPacedOrTheOtherIs) {
  const Bytes data = half_a_second();
  TestNode tap("qel_demux0");
  tap.pes(kClockPid, DMX_OUT_TAP, DMX_PES_OTHER, DMX_IN_FRONTEND);
  qel_receiver_set_pacing(0, 1);
  const auto begin = Steady::now();
  EXPECT_EQ(feed(data, DMX_IN_FRONTEND), 0);
  EXPECT_GE(Steady::now() - begin, 490ms);
  const Bytes longer = minutes();
  Background recorded([&] { return feed(longer, DMX_IN_DVR); });
  EXPECT_TRUE(recorded.done_within(20s));
  qel_receiver_set_pacing(0, 0);
  Background unpaced([&] { return feed(longer, DMX_IN_FRONTEND); });
  EXPECT_TRUE(unpaced.done_within(20s));
}

TEST_F(PaceTest, SmallPiecesEndThePaceOrAPidWithoutPcrsKeepsIt) {
  qel_receiver_set_pacing(0, 1);
  for (const unsigned pid : {kClockPid, kClockPid + 1}) {
    const auto begin = Steady::now();
    feed(pcr(pid, 0), DMX_IN_FRONTEND);
    for (int i = 0; i < 500; ++i) feed(mux.null_packets(1), DMX_IN_FRONTEND);
    feed(pcr(pid, kSecond / 2), DMX_IN_FRONTEND);
    EXPECT_GE(Steady::now() - begin, 490ms) << pid;
    feed(mux.null_packets(30000), DMX_IN_FRONTEND);
  }
}

TEST_F(PaceTest, PacketsBeforeThePcrWaitWithIt) {
  TestNode node = section_node(0x12);
  const Bytes data = stream::join(
      {pcr(kClockPid, 0), mux.sections(0x12, {stream::section(0x42, 1, 50)}),
       pcr(kClockPid, kSecond * 9 / 10), mux.sections(0x12, {stream::section(0x42, 1, 60)})});
  // Again where this thread was held up, and looked only when both sections were there.
  EXPECT_TRUE(vantrel::test::eventually([&] {
    SetUp();
    node.drain();
    qel_receiver_set_pacing(0, 1);
    Background feeder([&] { return feed(data, DMX_IN_FRONTEND); });
    node.readable(20000);
    const bool alone = node.drain() == Sizes{50};
    const auto seen = Steady::now();
    EXPECT_EQ(feeder.result(), 0);
    return alone && Steady::now() - seen > 400ms && node.drain() == Sizes{60};
  }));
}

TEST_F(PaceTest, PacedFeedIsNotReleased) {
  const std::function<void()> kReleases[] = {[] { vantrel::test::flush(0, DMX_IN_FRONTEND); },
                                             [] { qel_receiver_set_pacing(0, 0); }};
  const Bytes data = minutes();
  for (const auto& release : kReleases) {
    SetUp();
    qel_receiver_set_pacing(0, 1);
    Background feeder([&] { return feed(data, DMX_IN_FRONTEND); });
    EXPECT_TRUE(feeder.waits());
    release();
    EXPECT_TRUE(feeder.done_within(20s));
  }
}

class TemiTest : public ReceiverTest {
 protected:
  Bytes packet(unsigned pid, const Bytes& descriptors, bool payload = false) {
    return mux.packet(pid, payload ? stream::counting(100) : Bytes(),
                      {.af_descriptors = descriptors});
  }
  static Bytes descriptor(std::uint8_t tag, std::size_t size) {
    return stream::af_descriptor(tag, stream::counting(size, tag));
  }
};

TEST_F(TemiTest, DescriptorsAreMissedBeforeStartOrLeftBehindByStop) {
  TestNode node("qel_temi0", O_RDONLY | O_NONBLOCK);
  const Bytes timeline = descriptor(0x04, 10), location = descriptor(0x05, 20);
  dmx_read_size size{};
  feed(packet(0x100, timeline));
  node.buffer(16384);
  int source = 0;
  EXPECT_EQ(node.control(KWRX_DMX_SET_SOURCE, &source), 0);
  EXPECT_EQ(node.control(KWRX_DMX_START), 0);
  feed(packet(0x100, descriptor(0x01, 8) + location));
  feed(packet(0x101, timeline, true), DMX_IN_FRONTEND);
  feed(mux.unit(0x102, stream::pes(0xc0, 300)));
  EXPECT_EQ(node.control(KWRX_DMX_GET_READ_SIZE, &size), 0);
  EXPECT_EQ(size.size, static_cast<int>(timeline.size() + location.size()));
  EXPECT_EQ(node.read(), location + timeline);
  feed(packet(0x100, timeline));
  EXPECT_EQ(node.control(KWRX_DMX_STOP), 0);
  feed(packet(0x100, timeline));
  EXPECT_FALSE(node.readable());
  EXPECT_TRUE(node.drain().empty());
}

TEST_F(TemiTest, DescriptorsAmidARunOfPacketsAreMissedOrNotRecorded) {
  const Bytes timeline = descriptor(0x04, 10);
  for (const dmx_output output : {DMX_OUT_TS_TAP, DMX_OUT_TAP}) {
    TestNode node("qel_temi0", O_RDONLY | O_NONBLOCK), filter("qel_demux0");
    TestNode record("qel_dvr0", O_RDONLY | O_NONBLOCK);
    node.control(KWRX_DMX_START);
    filter.pes(0x100, output);
    const Bytes packets = stream::join({mux.unit(0x100, stream::pes(0xe0, 3 * 184 - 9, false)),
                                        packet(0x100, timeline, true),
                                        mux.packet(0x100, stream::counting(184)),
                                        packet(0x100, timeline, true)});
    feed(packets);
    EXPECT_EQ(node.read(), timeline + timeline);
    EXPECT_EQ(record.read_all(), output == DMX_OUT_TS_TAP ? packets : Bytes());
  }
}

TEST_F(TemiTest, FullNodeLosesDescriptorsOfARecordingOrCutsThem) {
  TestNode node("qel_temi0", O_RDONLY | O_NONBLOCK);
  const Bytes timeline = descriptor(0x04, 98);  // of 100 bytes
  node.buffer(250);
  node.control(KWRX_DMX_START);
  for (int i = 0; i < 4; ++i) feed(packet(0x100, timeline), DMX_IN_FRONTEND);
  EXPECT_EQ(node.drain(), (Sizes{200, -EOVERFLOW}));
  Bytes data;
  for (int i = 0; i < 30; ++i) data += packet(0x100, timeline);
  Background feeder([&] { return feed(data); });
  std::size_t got = 0;
  while (got < 3000 && node.readable(20000)) got += node.read_all().size();
  EXPECT_EQ(got, 3000U);
  EXPECT_EQ(feeder.result(), 0);
}

TEST_F(TemiTest, FilterIsSetOnATemiNode) {
  TestNode node("qel_temi0");
  EXPECT_EQ(node.section(0x10), -EINVAL);
  EXPECT_EQ(node.pes(0x10, DMX_OUT_TAP), -EINVAL);
  EXPECT_EQ(node.control(KWRX_DMX_START), 0);
}

}  // namespace
