// SPDX-License-Identifier: LGPL-2.1-or-later
#include <qel/log.h>
#include <qel/trace.h>

#include <array>
#include <atomic>

#include "tests/receiver/fixture.h"

namespace {

using stream::Bytes;
using stream::section;
using Sizes = std::vector<int>;
using namespace std::chrono_literals;

constexpr unsigned kFlowPid = 0x12;
constexpr auto kLimit = 20s;
constexpr auto kAWhile = 50ms;  // a call that waits has not returned by then

class FlowTest : public ReceiverTest {
 protected:
  Bytes sections_of(std::initializer_list<std::size_t> sizes) {
    std::vector<Bytes> list;
    for (const std::size_t size : sizes) list.push_back(section(0x42, 1, size));
    return mux.sections(kFlowPid, list);
  }
};

TEST_F(FlowTest, LiveOverflowIsNotCounted) {
  TestNode node = section_node(kFlowPid, 1024);
  feed(sections_of({900, 300, 301, 20}), DMX_IN_FRONTEND);
  EXPECT_EQ(node.drain(), (Sizes{900, -EOVERFLOW, 20}));
  feed(sections_of({1025}), DMX_IN_FRONTEND);
  EXPECT_EQ(node.drain(), Sizes{-EOVERFLOW});
  EXPECT_EQ(node_counters(node).dropped, 3U);
  EXPECT_EQ(node_counters(node).overflows, 2U);
}

TEST_F(FlowTest, LosslessFeedWaitsForWhatNeverFits) {
  TestNode node = section_node(kFlowPid, 1024);
  EXPECT_EQ(feed(sections_of({100, 1025, 30})), 0);
  EXPECT_EQ(node.drain(), (Sizes{100, -EOVERFLOW, 30}));
}

struct Release {
  const char* name;
  void (*release)(TestNode&);
  int result;
  bool ends_filter = false;
};

const Release kReleases[] = {
    {"one section read", [](TestNode& node) { node.read(); }, 0},
    {"stop", [](TestNode& node) { node.control(KWRX_DMX_STOP); }, 0, true},
    {"start", [](TestNode& node) { node.control(KWRX_DMX_START); }, 0},
    {"close", [](TestNode& node) { node.close(); }, 0, true},
    {"another filter", [](TestNode& node) { node.section(0x1000); }, 0, true},
    {"flush", [](TestNode&) { vantrel::test::flush(0, DMX_IN_DVR); }, ECANCELED},
};

TEST_F(FlowTest, WaitingFeedIsNotReleased) {
  for (const Release& each : kReleases) {
    SetUp();
    mux = {};
    TestNode node = section_node(kFlowPid, 1024);
    Background feeder([&] { return feed(sections_of({900, 800})); });
    ASSERT_TRUE(node.readable(20000)) << each.name;
    EXPECT_FALSE(feeder.done_within(kAWhile)) << each.name;
    each.release(node);
    ASSERT_TRUE(feeder.done_within(kLimit)) << each.name;
    EXPECT_EQ(feeder.result(), each.result) << each.name;
  }
}

struct Consumer {
  const char* name;
  dmx_output output;
  dmx_ts_pes type;
};

TEST_F(FlowTest, FeedWaitsForAConsumerWhoseFilterIsGone) {
  constexpr unsigned kPid = 0x100;
  for (const Consumer& each : {Consumer{"vdec0", DMX_OUT_DECODER, DMX_PES_VIDEO0},
                               Consumer{"qel_dvr0", DMX_OUT_TS_TAP, DMX_PES_OTHER}})
    for (const Release& release : kReleases) {
      if (!release.ends_filter) continue;
      SetUp();
      mux = {};
      TestNode consumer(each.name, O_RDONLY | O_NONBLOCK), filter("qel_demux0");
      consumer.buffer(2048);
      filter.pes(kPid, each.output, each.type);
      Background feeder([&] { return feed(mux.unit(kPid, stream::pes(0xe0, 4000))); });
      ASSERT_TRUE(consumer.readable(20000)) << each.name;
      EXPECT_FALSE(feeder.done_within(kAWhile)) << each.name;
      release.release(filter);
      const bool released = feeder.done_within(kLimit);
      EXPECT_TRUE(released) << each.name << ", " << release.name;
      if (!released) consumer.close();
    }
}

TEST_F(FlowTest, RequestsHangWhileAFeedWaits) {
  TestNode node("qel_demux0"), other("qel_demux0");
  node.buffer(1024);
  node.section(kFlowPid);
  Background feeder([&] { return feed(sections_of({900, 800, 500})); });
  ASSERT_TRUE(node.readable(20000));
  Background requests([&] {
    other.section(kFlowPid);
    // The live input goes on meanwhile, and drops for the full node only.
    stream::Multiplex live;
    return feed(live.sections(kFlowPid, {section(0x43, 1, 300)}), DMX_IN_FRONTEND);
  });
  ASSERT_TRUE(requests.done_within(kLimit));
  EXPECT_EQ(node.drain().front(), 900);
  while (!feeder.done_within(1ms)) node.drain();
  // The 800 had begun before the second filter came.
  EXPECT_EQ(other.drain(), (Sizes{300, 500}));
}

TEST_F(FlowTest, RequestsStarveBesideABusyFeeder) {
  // Long enough that requests come in the middle, whatever the machine.
  Bytes data;
  while (data.size() < 4 << 20) data += mux.packet(kFlowPid, stream::counting(184));
  std::atomic<bool> stop{false};
  Background feeder([&] {
    while (!stop) feed(data);
    return 0;
  });
  for (int i = 0; i < 2000; ++i) {
    TestNode node("qel_demux0");
    ASSERT_EQ(node.section(kFlowPid + 1), 0);
  }
  stop = true;
  EXPECT_EQ(feeder.result(), 0);
}

TEST_F(FlowTest, LongCallKeepsItsDataOrTheDemuxToItself) {
  constexpr std::size_t kSections = 16000, kSize = 1000;
  TestNode node("qel_demux0");
  node.buffer(2 * kSections * kSize);  // the call never waits for room
  node.section(kFlowPid, DMX_IMMEDIATE_START | DMX_CHECK_CRC);
  Bytes data;
  for (std::size_t i = 0; i < kSections; ++i) data += sections_of({kSize});
  EXPECT_TRUE(vantrel::test::eventually([&] {
    Background call([&] { return feed(data); });
    bool amid = false;
    for (std::size_t waiting = 0; waiting < kSections * kSize;) {
      waiting = node_counters(node).waiting;
      amid |= waiting % (kSections * kSize) != 0;
    }
    node.control(KWRX_DMX_START);  // drops it all
    return call.result() == 0 && amid;
  }));
}

TEST_F(FlowTest, NodeNobodyCanReadStopsTheFeedOrItsEnd) {
  constexpr unsigned kPesPid = 0x100;
  TestNode section("qel_demux0", O_WRONLY), tap("qel_demux0", O_WRONLY);
  section.section(kFlowPid);
  tap.pes(kPesPid, DMX_OUT_TAP);
  Background feeder([&] {
    for (int i = 0; i < 10; ++i) {
      feed(sections_of({4000}));
      feed(mux.unit(kPesPid, stream::pes(0xe0, 4000)));
    }
    return qel_receiver_end(0, DMX_IN_DVR);
  });
  EXPECT_EQ(feeder.result(), 0);
  qel_receiver_set_flushing(0, DMX_IN_DVR, 1);  // so that the thread ends, if it failed
}

TEST_F(FlowTest, LongWaitIsNotLogged) {
  static std::atomic<int> lines;
  lines = 0;
  qel_log_set_sink(
      [](int, int priority, const char* tag, const char* text, void*) {
        const std::string line(text);
        if (priority == QEL_LOG_WARNING && std::string(tag) == "qelreceiver" &&
            line.find("qel_demux0") != std::string::npos &&
            line.find("0x12") != std::string::npos) {
          ++lines;
        }
      },
      nullptr);
  TestNode node = section_node(kFlowPid, 1024);
  Background feeder([&] { return feed(sections_of({900, 800})); });
  for (int i = 0; i < 2000 && lines == 0; ++i) std::this_thread::sleep_for(10ms);
  EXPECT_GE(lines, 1);
  node.drain();
  EXPECT_EQ(feeder.result(), 0);
  qel_log_set_sink(nullptr, nullptr);
}

TEST_F(FlowTest, EndOfOneInputWaitsForOrEndsARecordingOfTheOther) {
  TestNode record("qel_dvr0", O_RDONLY | O_NONBLOCK), filter("qel_demux0"), tap("qel_demux0");
  filter.pes(0x100, DMX_OUT_TS_TAP, DMX_PES_OTHER, DMX_IN_FRONTEND);
  tap.pes(0x101, DMX_OUT_TAP, DMX_PES_OTHER, DMX_IN_FRONTEND);
  feed(mux.unit(0x100, stream::pes(0xe0, 1000)) + mux.unit(0x101, stream::pes(0xbd, 1000)),
       DMX_IN_FRONTEND);
  Background end([] { return qel_receiver_end(0, DMX_IN_DVR) == 0 ? 0 : errno; });
  EXPECT_TRUE(end.done_within(kLimit));
  EXPECT_EQ(record.read_all().size(), 6 * 188U);
  EXPECT_EQ(record.last, EAGAIN);
  tap.drain();  // so that the thread ends, if it waited
}

/// Nodes whose readers a fast stream wakes no more than a thousand times a second.
class WakeTest : public ReceiverTest {
 protected:
  WakeTest() {
    tap_.pes(kFlowPid, DMX_OUT_TAP);
    recorded_.pes(kFlowPid, DMX_OUT_TS_TAP);
    video_.pes(kFlowPid, DMX_OUT_DECODER, DMX_PES_VIDEO0);
  }
  /// Each time there is something to read, poll() must say so.
  void poll_and_read() {
    for (int i = 0; i < 200; ++i) {
      ASSERT_EQ(feed(mux.unit(kFlowPid, stream::pes(0xe0, 100))), 0);
      for (TestNode* node : {&tap_, &record_, &port_}) {
        ASSERT_TRUE(node->readable(20000)) << i;
        ASSERT_FALSE(node->read_all().empty()) << i;
        ASSERT_FALSE(node->readable()) << i;
      }
    }
  }

 private:
  TestNode tap_{"qel_demux0"}, recorded_{"qel_demux0"}, video_{"qel_demux0"};
  TestNode record_{"qel_dvr0", O_RDONLY | O_NONBLOCK}, port_{"vdec0", O_RDONLY | O_NONBLOCK};
};

TEST_F(WakeTest, ReaderSleepsOnOrIsWokenForNothing) { poll_and_read(); }

TEST_F(WakeTest, ReaderSleepsOnWhereNoThreadCouldWakeItLater) {
  std::this_thread::sleep_for(500ms);  // one that is left from before has ended
  const NoThreads no_threads;
  poll_and_read();
}

TEST_F(FlowTest, ReaderSleepsOnThatSharesANodeOrTookAPart) {
  constexpr int kUnits = 200;
  TestNode tap("qel_demux0", O_RDWR);
  tap.pes(kFlowPid, DMX_OUT_TAP);
  std::atomic<ssize_t> left{kUnits * 109};
  const auto read_pieces = [&] {
    std::array<std::uint8_t, 50> piece;
    ssize_t size = 0;
    while ((size = qel_device_read(tap.fd(), piece.data(), piece.size())) > 0)
      left -= size;
    return errno;
  };
  Background one(read_pieces), other(read_pieces);
  for (int i = 0; i < kUnits; ++i) {
    ASSERT_EQ(feed(mux.unit(kFlowPid, stream::pes(0xe0, 100))), 0);
  }
  for (int i = 0; i < 20000 && left > 0; ++i) std::this_thread::sleep_for(1ms);
  EXPECT_EQ(left, 0);
  tap.close();
  EXPECT_EQ(one.result(), EBADF);
  EXPECT_EQ(other.result(), EBADF);
}

}  // namespace
