// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gtest/gtest.h>
#include <qel/receiver.h>

#include <future>
#include <thread>

#include "plugin/lifecycle.h"
#include "tests/element/decoder.h"
#include "tests/element/harness.h"
#include "tests/support/ts_builder.h"

namespace vantrel::testing {
namespace {

constexpr guint kPid = 0x50;

/// Sections of one PID, each with another extension, packed in a stream that
/// goes on from one turn to the next.
struct Carousel {
  explicit Carousel(guint count, std::size_t size = 60, guint carousel_pid = kPid)
      : pid(carousel_pid) {
    for (guint i = 0; i < count; i++) {
      list.push_back(stream::section(0x42, static_cast<std::uint16_t>(i + 1), size, 1));
      sections.push_back(stream::text(list.back()));
    }
  }

  /// The packets of the first `count` sections.
  std::string turn(std::size_t count) {
    return stream::text(
        multiplex.sections(pid, {list.begin(), list.begin() + static_cast<long>(count)}));
  }
  std::string turn() { return turn(list.size()); }

  guint pid;
  std::vector<stream::Bytes> list;
  std::vector<std::string> sections;
  stream::Multiplex multiplex;
};

TEST(SectionReader, DeliversWhatIsInTheStreamInOrderAndOnce) {
  Carousel carousel(500, 700);
  Element element;
  gpointer handle = element.add(kPid, 0x42, true, true);
  element.go(GST_STATE_PLAYING);
  element.feed(carousel.turn());
  ASSERT_TRUE(element.wait_for(500));
  const auto deliveries = element.deliveries();
  EXPECT_TRUE(element.received() == carousel.sections);
  EXPECT_EQ(deliveries[0].pid, kPid);
  EXPECT_EQ(deliveries[0].table_id, 0x42U);
  EXPECT_EQ(deliveries[0].handle, handle);
}

TEST(SectionReader, ServesFiltersAddedInEveryState) {
  Element element;
  std::vector<gpointer> handles;
  for (const GstState state :
       {GST_STATE_NULL, GST_STATE_READY, GST_STATE_PAUSED, GST_STATE_PLAYING}) {
    element.go(state);
    handles.push_back(element.add(kPid, 0x42));
  }
  element.feed(Carousel(1).turn());
  ASSERT_TRUE(element.wait_for(4));
  std::vector<gpointer> seen;
  for (const Delivery& delivery : element.deliveries()) seen.push_back(delivery.handle);
  // A pass that is under way when the section comes begins in the middle.
  EXPECT_TRUE(std::is_permutation(seen.begin(), seen.end(), handles.begin(), handles.end()));
}

TEST(SectionReader, DropsWhilePausedExceptWhenRecording) {
  for (const guint demux_type : {0U, 1U, 2U, 3U}) {
    SCOPED_TRACE(demux_type);
    Element element(demux_type);
    element.add(kPid, 0x42, true);
    element.go(GST_STATE_PLAYING);
    element.go(GST_STATE_PAUSED);
    Trace trace(true);
    Carousel carousel(2);
    element.feed(carousel.turn(1));
    std::vector<std::string> reads;
    EXPECT_TRUE(eventually([&] {
      for (const std::string& line : trace.take("= 60")) reads.push_back(line);
      return !reads.empty();
    }));
    EXPECT_TRUE(demux_type == DMX_TYPE_DTV_RECORD ? element.wait_for(1) : element.delivered() == 0);
    element.go(GST_STATE_PLAYING);
    // What was dropped has not been remembered: the same section is new; what
    // was delivered is not.
    element.feed(carousel.turn());
    ASSERT_TRUE(element.wait_for(2));
    EXPECT_TRUE(element.received() == carousel.sections);
  }
}

TEST(SectionReader, LogsTheFirstPatOnly) {
  Element element;
  Log log;
  element.add(0, 0x42);
  element.go(GST_STATE_PLAYING);
  element.feed(Carousel(3, 60, 0).turn());
  ASSERT_TRUE(element.wait_for(3));
  element.go(GST_STATE_NULL);
  int pat = 0;
  for (const Log::Line& line : log.take())
    if (line.message.ends_with(" PAT emit: len: 60!!!")) {
      pat++;
      EXPECT_EQ(line.buffer, QEL_LOG_BUFFER_SYSTEM);
      EXPECT_EQ(line.function, "vantrel_read_sections");
    }
  EXPECT_EQ(pat, 1);
}

TEST(SectionReader, LogsEachStepOfAPass) {
  Element element;
  Log log;
  element.add(kPid, 0x100);  // any table id, so that none is as expected
  element.go(GST_STATE_PLAYING);
  element.feed(Carousel(1).turn());
  const std::set<std::string> steps = {
      "3 vantrel_read_section_filters: poll begin!!",
      "3 vantrel_read_section_filters: poll timeout",
      "3 vantrel_read_section_filters: poll end!!",
      "3 vantrel_read_section_filters: errno: 16",
      "3 vantrel_read_section_filters: poll sec_cnt:1, num: 1",
      "3 vantrel_read_sections: s: PTR, buf: PTR",
      "3 vantrel_read_sections: [GST_VANTREL][1]section read count: 60, s->pid 80, "
      "s->table_id 256, real tid: 66, ver_chk: 0, crc_chk: 0!!!",
      "6 vantrel_read_sections: Error. Table ID is not matched. s->pid 80, s->table_id 256, "
      "real tid: 66, s:PTR,  s->fd: N, buf:PTR",
      "3 vantrel_read_sections: [GST_VANTREL]g_signal_emit: 60, pid 80, table_id 256, "
      "real tid: 66!!!",
  };
  const auto end_a_wait = [&] {
    element.remove(element.add(kPid + 1, 1));
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
  };
  EXPECT_EQ(
      log.missing(steps, {"vantrel_read_section_filters", "vantrel_read_sections"}, end_a_wait),
      "");
}

TEST(SectionReader, SurvivesFailedAndShortReads) {
  Element element;
  element.add(kPid, 0x42);
  Faults faults(
      "qel_demux0 read 1 EIO\n"
      "qel_demux0 read 2 short=3\n"
      "qel_demux0 read 4 ETIMEDOUT\n");
  Log log;
  // Before the reader is there: it reads empty nodes too, and those reads count.
  Carousel carousel(3);
  element.feed(carousel.turn());
  element.go(GST_STATE_PLAYING);
  EXPECT_TRUE(eventually([&] { return element.delivered() >= 3; }));
  EXPECT_TRUE(log.has("[GST_VANTREL][1]vantrel_read_sections: read error!"));
  EXPECT_TRUE(log.has("[GST_VANTREL]vantrel_read_sections count: 3!!!!"));
  EXPECT_TRUE(element.deliveries().back().bytes == carousel.sections[2]);
}

TEST(SectionReader, LosesNothingBeforeEndOfStreamHasPassed) {
  Carousel carousel(400, 900);
  for (int round = 0; round < 3; round++) {
    Element element;
    Upstream upstream(element.get());
    element.set("dmx-buf-size", 8192U);  // many times too small: the feed waits
    element.add(kPid, 0x42);
    element.go(GST_STATE_PLAYING);
    upstream.start_of_stream();
    const std::string packets = carousel.turn();
    for (std::size_t at = 0; at < packets.size(); at += 10007)
      EXPECT_EQ(upstream.push(packets.substr(at, 10007)), GST_FLOW_OK);
    upstream.send(gst_event_new_eos());
    EXPECT_TRUE(element.received() == carousel.sections);
  }
}

TEST(SectionReader, AtItsEndStopsAndFreesEveryFilter) {
  Element element;
  for (guint i = 0; i < 97; i++) element.add(kPid, i);
  element.go(GST_STATE_PLAYING);
  Log log;
  element.go(GST_STATE_NULL);
  EXPECT_EQ(open_nodes(0), 0);
  int cleared = 0;
  for (const Log::Line& line : log.take())
    if (line.message.find(" clear running filter ptr: ") != std::string::npos) cleared++;
  EXPECT_EQ(cleared, 97);  // the waiting one was started, and cleared in its turn
}

TEST(SectionHandler, LeavesNothingBehindOfTheFiltersItReplaces) {
  if (resident_bytes() == 0) GTEST_SKIP() << "a sanitizer keeps the books";
  Element element;
  element.add(kPid, 0x42);
  std::atomic<int> replaced{0};
  element.on_delivery([&](const Delivery& delivery) {
    element.remove(delivery.handle);
    element.add(kPid, 0x42);
    replaced++;
  });
  element.go(GST_STATE_PLAYING);
  Carousel carousel(200);
  const auto replace = [&](int count) {
    while (replaced < count) element.feed(carousel.turn());
  };
  replace(50);
  const std::size_t memory = resident_bytes();
  replace(350);
  EXPECT_LT(resident_bytes(), memory + 1024 * 1024);
}

TEST(SectionHandler, IsNotCalledOnceRemovalHasReturned) {
  Element element;
  gpointer handle = element.add(kPid, 0x42);
  std::promise<void> entered;
  std::promise<void> leave;
  std::atomic<bool> inside{false};
  element.on_delivery([&](const Delivery&) {
    inside = true;
    entered.set_value();
    leave.get_future().wait();
    inside = false;
  });
  element.go(GST_STATE_PLAYING);
  element.feed(Carousel(2).turn());
  entered.get_future().wait();
  Log log;
  auto removal = std::async(std::launch::async, [&] {
    element.remove(handle);
    return inside.load();
  });
  EXPECT_TRUE(eventually([] { return open_nodes(0) == 0; }));
  // Others are served while the removal waits for the handler.
  gpointer other = element.add(kPid + 1, 0x42);
  EXPECT_NE(other, nullptr);
  element.remove(other);
  leave.set_value();
  EXPECT_FALSE(removal.get());
  EXPECT_EQ(element.delivered(), 1U);
  EXPECT_EQ(
      log.count("[1]section reading interrupt sec_filter_wait_flag: 1, start_pesdata_flag: 1"), 1);
}

TEST(SectionReader, EndsThoughItsNodeNeverRunsDry) {
  Carousel carousel(1000);
  const std::string turn = carousel.turn();
  Element element;
  element.add(kPid, 0x42);
  // Slower than the feeder, which waits for room in the node.
  element.on_delivery(
      [](const Delivery&) { std::this_thread::sleep_for(std::chrono::milliseconds(1)); });
  element.go(GST_STATE_PLAYING);
  std::atomic<bool> down{false};
  std::jthread feeder([&] {
    while (!down) qel_receiver_feed(0, DMX_IN_DVR, turn.data(), turn.size());
  });
  ASSERT_TRUE(element.wait_for(1));
  auto teardown = std::async(std::launch::async, [&] { element.go(GST_STATE_NULL); });
  EXPECT_EQ(teardown.wait_for(kPatience), std::future_status::ready);
  down = true;
}

TEST(SectionHandler, KeepsUpWithFourThreadsThatAddAndRemove) {
  Element element;
  gpointer steady = element.add(kPid, 0x42);
  element.go(GST_STATE_PLAYING);
  std::atomic<bool> done{false};
  std::vector<std::jthread> threads;
  for (guint t = 0; t < 4; t++)
    threads.emplace_back([&, t] {
      for (int i = 0; i < 150; i++) element.remove(element.add(kPid + t, 0x42));
      if (t == 0) done = true;
    });
  Carousel carousel(20);
  std::size_t fed = 0;
  for (; !done || fed < 200; fed += 20) element.feed(carousel.turn());
  threads.clear();
  EXPECT_TRUE(eventually([&] {
    const auto deliveries = element.deliveries();
    return static_cast<std::size_t>(
               std::count_if(deliveries.begin(), deliveries.end(),
                             [&](const Delivery& each) { return each.handle == steady; })) >= fed;
  }));
}

}  // namespace
}  // namespace vantrel::testing
