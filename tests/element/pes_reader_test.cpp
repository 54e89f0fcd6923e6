// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gtest/gtest.h>
#include <qel/receiver.h>

#include <future>

#include "plugin/lifecycle.h"
#include "tests/element/harness.h"
#include "tests/support/test_node.h"

namespace vantrel::testing {
namespace {

/// PES packets of one PID, of sizes that fill packets in all ways.
struct Subtitles {
  explicit Subtitles(guint stream_pid) : pid(stream_pid) {}

  std::string next(std::size_t payload) {
    const stream::Bytes packet = stream::pes(0xBD, payload);
    sent.push_back(stream::text(packet));
    return stream::text(multiplex.unit(pid, packet));
  }

  guint pid;
  stream::Multiplex multiplex;
  std::vector<std::string> sent;
};

TEST(PesReader, DeliversSubtitlesAndTeletextWholeAndOnce) {
  Element element;
  element.set("sub-pid", 0x21);
  element.set("ttx-pid", 0x22);
  element.go(GST_STATE_PLAYING);
  Subtitles subtitle(0x21);
  Subtitles teletext(0x22);
  for (const std::size_t size : {1U, 100U, 175U, 176U, 1000U, 20000U, 65000U}) {
    element.feed(subtitle.next(size));
    element.feed(teletext.next(size / 2 + 1));
  }
  ASSERT_TRUE(element.wait_for(14));
  EXPECT_TRUE(element.received(0x21) == subtitle.sent);
  EXPECT_TRUE(element.received(0x22) == teletext.sent);
}

TEST(PesReader, ReadsInTableOrder) {
  Element element;
  element.go(GST_STATE_PAUSED);
  for (const gint pid : {0x31, 0x32, 0x33}) element.set("isdb-pid", pid);
  element.go(GST_STATE_PLAYING);
  Subtitles first(0x31), second(0x32), third(0x33);
  std::promise<void> fed;  // an input has one feeder at a time
  // Fed while the pass is at the last stream: the next one finds both readable.
  element.on_delivery([&](const Delivery& delivery) {
    if (delivery.pid != 0x33) return;
    fed.get_future().wait();
    element.feed(second.next(50) + first.next(50));
  });
  element.feed(third.next(50));
  fed.set_value();
  ASSERT_TRUE(element.wait_for(3));
  EXPECT_EQ(element.deliveries()[1].pid, 0x31U);
}

TEST(PesReader, LogsEachStepOfAPass) {
  Element element;
  element.set("sub-pid", 0x21);
  Log log;
  element.go(GST_STATE_PLAYING);
  element.feed(Subtitles(0x21).next(91));
  const std::set<std::string> steps = {
      "3 vantrel_poll: [GST_VANTREL]Poll timeout 1000 u-seconds",
      "3 vantrel_poll: [GST_VANTREL]Poll return 0 ",
      "3 vantrel_poll: [GST_VANTREL]Poll return 1 ",
      "3 vantrel_read_pes_filters: [GST_VANTREL]VANTREL_SIGNAL_PES_UPLOAD done count: 100, pid "
      "33\n",
  };
  EXPECT_EQ(log.missing(steps, {"vantrel_poll", "vantrel_read_pes_filters"}), "");
}

/// Filters are programmed for the first type, since those of a recording feed
/// the record node; the second one counts when they are read.
struct Pause {
  DmxType programmed;
  DmxType read;
  bool delivers;
};

TEST(PesReader, DropsWhilePausedExceptWhenRecording) {
  for (const Pause& row : {Pause{DMX_TYPE_LIVE, DMX_TYPE_LIVE, false},
                           Pause{DMX_TYPE_PVR_PLAYBACK, DMX_TYPE_PVR_PLAYBACK, false},
                           Pause{DMX_TYPE_LIVE, DMX_TYPE_DTV_RECORD, true},
                           Pause{DMX_TYPE_PVR_PLAYBACK, DMX_TYPE_ATV_RECORD, false}}) {
    SCOPED_TRACE(row.read);
    Element element(row.programmed);
    element.set("sub-pid", 0x21);
    element.go(GST_STATE_PLAYING);
    element.go(GST_STATE_PAUSED);
    element.set("demux-type", guint{row.read});
    Subtitles subtitle(0x21);
    Log log;
    element.feed(subtitle.next(91));
    EXPECT_TRUE(eventually([&] {
      return log.has("[GST_VANTREL]VANTREL_SIGNAL_PES_UPLOAD done count: 100, pid 33\n");
    }));
    EXPECT_EQ(element.delivered(), row.delivers ? 1U : 0U);
    element.go(GST_STATE_PLAYING);
    element.feed(subtitle.next(92));
    ASSERT_TRUE(element.wait_for(row.delivers ? 2 : 1));
    EXPECT_TRUE(element.deliveries().back().bytes == subtitle.sent[1]);
  }
}

TEST(PesReader, EndsItsPassAtAStreamWithoutANode) {
  const std::string end = "[GST_VANTREL]vantrel_read_pes_filters fd: -1\n";
  Element element;
  element.set("ttx-pid", 0x22);
  element.go(GST_STATE_PLAYING);
  {
    Faults faults("qel_demux0 open 1 EMFILE");
    element.set("isdb-pid", 0x21);
  }
  element.set("isdb-pid", 0x23);
  Subtitles teletext(0x22);
  Subtitles behind(0x23);
  element.feed(behind.next(10) + teletext.next(10));
  Log log;
  // The second end is that of a pass that began with all of it fed.
  EXPECT_TRUE(eventually([&] { return log.count(end) >= 2; }));
  EXPECT_TRUE(element.wait_for(1));
  EXPECT_TRUE(element.received(0x22) == teletext.sent);
  EXPECT_EQ(element.delivered(), 1U);
}

TEST(PesReader, EndsThoughItsNodeNeverRunsDry) {
  within_limit([] {
    Element element(DMX_TYPE_LIVE);
    element.set("sub-pid", 0x21);
    element.go(GST_STATE_PLAYING);
    std::mutex one_feeder;
    Subtitles subtitle(0x21);
    const auto feed = [&](const Delivery&) {
      const std::lock_guard lock(one_feeder);
      element.feed(subtitle.next(10));
    };
    element.on_delivery(feed);
    feed({});
    EXPECT_TRUE(element.wait_for(3));
    gst_vantrel_destory(element.state());  // no stop before it that would empty the node
  });
}

/// The handler's stream is gone, and another node has its descriptor's number.
TEST(PesHandler, LeavesANodeAloneThatCameInPlaceOfItsOwn) {
  Element element;
  element.set("sub-pid", 0x21);
  element.set("ttx-pid", 0x22);
  element.go(GST_STATE_PLAYING);
  std::promise<void> left;
  const int fd = element.state()->streams[0]->fd;
  std::vector<test::TestNode> nodes;
  element.on_delivery([&](const Delivery&) {
    element.set("sub-pid", -1);
    while (nodes.size() < 20 && (nodes.empty() || nodes.back().fd() != fd))
      nodes.emplace_back("qel_demux1");
    EXPECT_EQ(nodes.back().fd(), fd);
    EXPECT_EQ(nodes.back().pes(0x21, DMX_OUT_TAP), 0);
    const std::string packets = Subtitles(0x21).next(10);
    EXPECT_EQ(qel_receiver_feed(1, DMX_IN_DVR, packets.data(), packets.size()), 0);
    left.set_value();
  });
  element.feed(Subtitles(0x21).next(10));
  left.get_future().wait();
  Log log;  // of the wait for the next stream, once this one is done with
  EXPECT_TRUE(eventually([&] { return log.has("[GST_VANTREL]Poll timeout 1000 u-seconds"); }));
  EXPECT_EQ(element.delivered(), 1U);
}

}  // namespace
}  // namespace vantrel::testing
