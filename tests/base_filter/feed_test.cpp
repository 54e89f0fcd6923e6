// SPDX-License-Identifier: LGPL-2.1-or-later
#include <qel/log.h>
#include <qel/receiver.h>

#include <atomic>
#include <thread>

#include "tests/base_filter/test_filter.h"

namespace {

using namespace vantrel::test;
using stream::operator+;

constexpr guint kLive = 0;
constexpr guint kPlayback = 1;
constexpr unsigned kPid = 100;

qel_input_counters counters(unsigned demux, dmx_input input) {
  qel_input_counters result{};
  qel_receiver_get_input_counters(demux, input, &result);
  return result;
}

class Feed : public testing::Test {
 protected:
  static void SetUpTestSuite() { gst_init(nullptr, nullptr); }
  void SetUp() override {
    element_ = GST_ELEMENT(gst_object_ref_sink(new_test_filter(script_)));
    pad_ = GST_TV_BASE_FILTER(element_)->sinkpad;
    for (unsigned demux = 0; demux < QEL_RECEIVER_DEMUXES; ++demux)
      qel_receiver_reset_counters(demux);
  }
  void TearDown() override {
    gst_element_set_state(element_, GST_STATE_NULL);
    gst_object_unref(element_);
  }

  void run(guint demux, guint type, GstState state) {
    g_object_set(element_, "demux-id", demux, "demux-type", type, nullptr);
    gst_element_set_state(element_, state);
    start_stream();
  }
  void start_stream() {
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_BYTES);
    ASSERT_TRUE(gst_pad_send_event(pad_, gst_event_new_stream_start("test")));
    ASSERT_TRUE(gst_pad_send_event(pad_, gst_event_new_segment(&segment)));
  }
  GstFlowReturn push(const Bytes& data) {
    return gst_pad_chain(pad_, gst_buffer_new_memdup(data.data(), data.size()));
  }
  void flush_start() { gst_pad_send_event(pad_, gst_event_new_flush_start()); }
  void flush_stop() {
    gst_pad_send_event(pad_, gst_event_new_flush_stop(TRUE));
    start_stream();
  }

  Script script_;
  GstElement* element_ = nullptr;
  GstPad* pad_ = nullptr;
};

TEST_F(Feed, TypeOrIdChoosesAnotherInput) {
  for (const guint type : {0U, 1U, 2U, 3U, 4U, 65535U})
    for (const guint demux : {0U, 5U}) {
      qel_receiver_reset_counters(demux);
      run(demux, type, GST_STATE_PLAYING);
      EXPECT_EQ(push(null_packets(10)), GST_FLOW_OK);
      const dmx_input input = type == 0 || type == 2 ? DMX_IN_FRONTEND : DMX_IN_DVR;
      const dmx_input other = input == DMX_IN_DVR ? DMX_IN_FRONTEND : DMX_IN_DVR;
      EXPECT_EQ(counters(demux, input).packets, 10U) << demux << " " << type;
      EXPECT_EQ(counters(demux, other).packets, 0U) << demux << " " << type;
      gst_element_set_state(element_, GST_STATE_READY);
    }
}

TEST_F(Feed, PropertyWrittenWhilePlayingLeavesDataOnTheOldInput) {
  run(0, kLive, GST_STATE_PLAYING);
  push(null_packets(10));
  g_object_set(element_, "demux-id", 3, nullptr);
  push(null_packets(20));
  g_object_set(element_, "demux-type", kPlayback, nullptr);
  push(null_packets(30));
  EXPECT_EQ(counters(0, DMX_IN_FRONTEND).packets, 10U);
  EXPECT_EQ(counters(3, DMX_IN_FRONTEND).packets, 20U);
  EXPECT_EQ(counters(3, DMX_IN_DVR).packets, 30U);
  const Bytes data = null_packets(1);
  EXPECT_EQ(qel_receiver_feed(0, DMX_IN_FRONTEND, data.data(), data.size()), 0)
      << "the old input is left flushing";
}

TEST_F(Feed, PropertiesOfSeveralThreadsLeaveDataOnAnInputThatNobodyChose) {
  run(0, kLive, GST_STATE_PLAYING);
  // As if another thread wrote while this one's change is being followed.
  script_.reading = [this] { g_object_set(element_, "demux-type", kPlayback, nullptr); };
  g_object_set(element_, "demux-id", 3, nullptr);
  push(null_packets(10));
  EXPECT_EQ(counters(3, DMX_IN_DVR).packets, 10U);
  gst_element_set_state(element_, GST_STATE_READY);
  script_.reading = [this] { g_object_set(element_, "demux-type", kLive, nullptr); };
  gst_element_set_state(element_, GST_STATE_PLAYING);
  start_stream();
  push(null_packets(10));
  EXPECT_EQ(counters(3, DMX_IN_FRONTEND).packets, 10U);
}

TEST_F(Feed, BufferOfManyMemoriesOrAnySizeLosesBytes) {
  run(1, kLive, GST_STATE_PLAYING);
  GstBuffer* many = gst_buffer_new();
  const Bytes data = null_packets(10);
  for (std::size_t at = 0; at < data.size();) {
    const std::size_t size = std::min<std::size_t>(data.size() - at, 1 + at % 300);
    gst_buffer_append_memory(many, gst_memory_new_wrapped(GST_MEMORY_FLAG_READONLY,
                                                          const_cast<std::uint8_t*>(data.data()),
                                                          data.size(), at, size, nullptr, nullptr));
    at += size;
  }
  EXPECT_EQ(gst_pad_chain(pad_, many), GST_FLOW_OK);
  EXPECT_EQ(push(null_packets(5000)), GST_FLOW_OK);
  EXPECT_EQ(gst_pad_chain(pad_, gst_buffer_new()), GST_FLOW_OK);
  EXPECT_EQ(counters(1, DMX_IN_FRONTEND).packets, 5010U);
  EXPECT_EQ(counters(1, DMX_IN_FRONTEND).skipped_bytes, 0U);
}

/// Counts the warnings of the platform while it lives.
class Warnings {
 public:
  Warnings() {
    qel_log_set_sink(
        [](int, int priority, const char*, const char*, void* data) {
          if (priority == QEL_LOG_WARNING) ++static_cast<Warnings*>(data)->count_;
        },
        this);
  }
  ~Warnings() { qel_log_set_sink(nullptr, nullptr); }
  [[nodiscard]] int count() const { return count_; }

 private:
  std::atomic<int> count_{0};
};

TEST_F(Feed, DemuxOutOfRangeFailsTheStreamOrFloodsTheLog) {
  const Warnings warnings;
  run(6, kLive, GST_STATE_PLAYING);
  for (int i = 0; i < 10; ++i) EXPECT_EQ(push(null_packets(10)), GST_FLOW_OK);
  EXPECT_TRUE(gst_pad_send_event(pad_, gst_event_new_eos()));
  EXPECT_EQ(warnings.count(), 1);
}

// --- Background -----------------------------------------------------------------

/// A node of demux 1 that holds no more than one of the sections fed to it.
class FullNode {
 public:
  FullNode() {
    node_.buffer(200);
    node_.section(kPid);
  }
  /// One section a packet.
  [[nodiscard]] static Bytes sections(unsigned count) {
    static stream::Multiplex multiplex;
    Bytes packets;
    for (unsigned i = 0; i < count; ++i)
      packets = std::move(packets) + multiplex.sections(kPid, {stream::short_section(0x42, 150)});
    return packets;
  }
  std::size_t read() { return node_.read().size(); }

 private:
  TestNode node_{"qel_demux1"};
};

TEST_F(Feed, FirstBufferPassesBeforeTheFiltersAreProgrammed) {
  const TestNode node("qel_demux1");
  run(1, kPlayback, GST_STATE_PAUSED);
  std::uint64_t packets_at_start = 1;
  script_.hook = [&](const std::string& operation) {
    if (operation == "start") packets_at_start = counters(1, DMX_IN_DVR).packets;
  };
  Background pushing([this] { return push(null_packets(10)); });
  EXPECT_TRUE(pushing.waits());
  gst_element_set_state(element_, GST_STATE_PLAYING);
  EXPECT_EQ(pushing.result(), GST_FLOW_OK);
  EXPECT_EQ(packets_at_start, 0U);
  EXPECT_EQ(counters(1, DMX_IN_DVR).packets, 10U);
  gst_element_set_state(element_, GST_STATE_PAUSED);
  EXPECT_EQ(push(null_packets(10)), GST_FLOW_OK) << "only the first waits";
}

TEST_F(Feed, FirstBufferPassesWhileTheFiltersAreBeingProgrammed) {
  const TestNode node("qel_demux1");
  node.pes(kPid, DMX_OUT_TAP);  // which start does once more
  run(1, kPlayback, GST_STATE_PAUSED);
  std::uint64_t packets_during_start = 1;
  script_.fail("start");
  script_.hook = [&](const std::string& operation) {
    if (operation != "start") return;
    node.section(kPid);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    packets_during_start = counters(1, DMX_IN_DVR).packets;
  };
  Background pushing([this] { return push(null_packets(10)); });
  EXPECT_TRUE(pushing.waits());
  EXPECT_EQ(gst_element_set_state(element_, GST_STATE_PLAYING), GST_STATE_CHANGE_FAILURE);
  EXPECT_EQ(pushing.result(), GST_FLOW_OK) << "a start that failed holds nothing up";
  EXPECT_EQ(packets_during_start, 0U);
}

TEST_F(Feed, FirstBufferWaitsForNothing) {
  run(1, kPlayback, GST_STATE_PAUSED);
  EXPECT_EQ(push(null_packets(1)), GST_FLOW_OK) << "no stream is registered";
  const TestNode node("qel_demux1");
  EXPECT_EQ(push(null_packets(1)), GST_FLOW_OK) << "it is the second buffer";
  gst_element_set_state(element_, GST_STATE_READY);
  run(1, kLive, GST_STATE_PAUSED);
  EXPECT_EQ(push(null_packets(1)), GST_FLOW_OK) << "a live input never waits";
  gst_element_set_state(element_, GST_STATE_READY);
  run(2, kPlayback, GST_STATE_PAUSED);
  EXPECT_EQ(push(null_packets(1)), GST_FLOW_OK) << "the node is another demux's";
}

TEST_F(Feed, FirstBufferIsNotReleased) {
  const struct {
    const char* by;
    std::function<void(const TestNode&)> release;
    GstFlowReturn result;
  } kRows[] = {
      {"flush", [this](const TestNode&) { flush_start(); }, GST_FLOW_FLUSHING},
      {"READY", [this](const TestNode&) { gst_element_set_state(element_, GST_STATE_READY); },
       GST_FLOW_FLUSHING},
      {"filter", [](const TestNode& filter) { filter.section(kPid); }, GST_FLOW_OK},
      {"another demux", [this](const TestNode&) { g_object_set(element_, "demux-id", 2, nullptr); },
       GST_FLOW_OK},
  };
  for (const auto& row : kRows) {
    const TestNode node("qel_demux1");
    run(1, kPlayback, GST_STATE_PAUSED);
    Background pushing([this] { return push(null_packets(10)); });
    EXPECT_TRUE(pushing.waits()) << row.by;
    row.release(node);
    EXPECT_EQ(pushing.result(), row.result) << row.by;
    gst_element_set_state(element_, GST_STATE_READY);
  }
}

TEST_F(Feed, FlushBeforeTheStartLetsTheNextBufferPass) {
  const TestNode node("qel_demux1");
  run(1, kPlayback, GST_STATE_PAUSED);
  flush_start();
  flush_stop();
  Background pushing([this] { return push(null_packets(10)); });
  EXPECT_TRUE(pushing.waits());
  gst_element_set_state(element_, GST_STATE_PLAYING);
  EXPECT_EQ(pushing.result(), GST_FLOW_OK);
}

TEST_F(Feed, BufferThatWaitsForRoomIsNotReleased) {
  const struct {
    const char* by;
    std::function<void()> release;
    GstFlowReturn result;
  } kRows[] = {
      {"flush", [this] { flush_start(); }, GST_FLOW_FLUSHING},
      {"READY", [this] { gst_element_set_state(element_, GST_STATE_READY); }, GST_FLOW_FLUSHING},
      {"another demux", [this] { g_object_set(element_, "demux-id", 2, nullptr); }, GST_FLOW_OK},
  };
  for (const auto& row : kRows) {
    FullNode node;
    run(1, kPlayback, GST_STATE_PLAYING);
    Background pushing([this] { return push(FullNode::sections(5)); });
    EXPECT_TRUE(pushing.waits()) << row.by;
    row.release();
    EXPECT_EQ(pushing.result(), row.result) << row.by;
    gst_element_set_state(element_, GST_STATE_READY);
    const Bytes data = null_packets(1);
    EXPECT_EQ(qel_receiver_feed(1, DMX_IN_DVR, data.data(), data.size()), 0)
        << row.by << ": the input is left flushing";
  }
}

TEST_F(Feed, FlushLetsHalfASectionThrough) {
  FullNode node;
  run(1, kLive, GST_STATE_PLAYING);
  const Bytes whole = FullNode::sections(1);
  push({whole.begin(), whole.begin() + 100});
  flush_start();
  flush_stop();
  push({whole.begin() + 100, whole.end()});
  EXPECT_EQ(node.read(), 0U);
  push(whole);
  EXPECT_EQ(node.read(), 150U);
}

TEST_F(Feed, InputOfAnotherFeederIsFlushedOrEnded) {
  FullNode node;
  Background other([] {
    const Bytes data = FullNode::sections(3);
    return qel_receiver_feed(1, DMX_IN_DVR, data.data(), data.size());
  });
  ASSERT_TRUE(other.waits());
  const Warnings warnings;
  run(1, kPlayback, GST_STATE_PLAYING);
  EXPECT_EQ(push(null_packets(10)), GST_FLOW_OK);
  EXPECT_EQ(push(null_packets(10)), GST_FLOW_OK);
  EXPECT_TRUE(gst_pad_send_event(pad_, gst_event_new_eos()));
  flush_start();
  gst_element_set_state(element_, GST_STATE_NULL);
  EXPECT_EQ(warnings.count(), 1);
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(eventually([&node] { return node.read() == 150; })) << i;
  EXPECT_EQ(other.result(), 0);
}

TEST_F(Feed, EndOfStreamOvertakesUnreadData) {
  FullNode node;
  run(1, kPlayback, GST_STATE_PLAYING);
  push(FullNode::sections(1));
  Background ending([this] { return gst_pad_send_event(pad_, gst_event_new_eos()); });
  EXPECT_TRUE(ending.waits());
  EXPECT_EQ(node.read(), 150U);
  EXPECT_TRUE(ending.result());
  EXPECT_TRUE(GST_PAD_IS_EOS(pad_));
}

TEST_F(Feed, EndOfStreamIsNotReleased) {
  for (const bool by_flush : {true, false}) {
    FullNode node;
    run(1, kPlayback, GST_STATE_PLAYING);
    push(FullNode::sections(1));
    Background ending([this] { return gst_pad_send_event(pad_, gst_event_new_eos()); });
    EXPECT_TRUE(ending.waits());
    if (by_flush)
      flush_start();
    else
      gst_element_set_state(element_, GST_STATE_READY);
    ending.result();
    EXPECT_FALSE(GST_OBJECT_FLAG_IS_SET(element_, GST_ELEMENT_FLAG_SINK));
    gst_element_set_state(element_, GST_STATE_READY);
  }
}

}  // namespace
