// SPDX-License-Identifier: LGPL-2.1-or-later
#include <atomic>
#include <random>
#include <thread>
#include <utility>
#include <vector>

#include "tests/base_filter/test_filter.h"

namespace {

using namespace vantrel::test;

constexpr auto kNull = GST_STATE_NULL;
constexpr auto kReady = GST_STATE_READY;
constexpr auto kPaused = GST_STATE_PAUSED;
constexpr auto kPlaying = GST_STATE_PLAYING;
constexpr auto kSuccess = GST_STATE_CHANGE_SUCCESS;
constexpr auto kNoPreroll = GST_STATE_CHANGE_NO_PREROLL;
constexpr auto kFailure = GST_STATE_CHANGE_FAILURE;

class State : public testing::Test {
 protected:
  static void SetUpTestSuite() { gst_init(nullptr, nullptr); }
  void SetUp() override { element_ = GST_ELEMENT(gst_object_ref_sink(new_test_filter(script_))); }
  void TearDown() override {
    if (element_ == nullptr) return;
    gst_element_set_state(element_, kNull);
    gst_object_unref(element_);
  }
  GstStateChangeReturn set(GstState state) { return gst_element_set_state(element_, state); }

  Script script_;
  GstElement* element_ = nullptr;
};

TEST_F(State, OperationsRunInAnotherOrderOrNumber) {
  const struct {
    GstState state;
    GstStateChangeReturn result;
    const char* operations;
  } kRows[] = {
      {kReady, kSuccess, ""},
      {kPaused, kNoPreroll, "initiate"},
      {kPlaying, kSuccess, "start"},
      {kPaused, kNoPreroll, "pause"},
      {kPlaying, kSuccess, "start"},
      {kReady, kSuccess, "pause stop destory"},
      {kPlaying, kSuccess, "initiate start"},
      {kNull, kSuccess, "pause stop destory"},
      {kPaused, kNoPreroll, "initiate"},
      {kNull, kSuccess, "stop destory"},
  };
  for (std::size_t i = 0; i < std::size(kRows); ++i) {
    EXPECT_EQ(set(kRows[i].state), kRows[i].result) << i;
    EXPECT_EQ(script_.take(), kRows[i].operations) << i;
  }
}

TEST_F(State, SinkPadFollowsTheWrongClass) {
  GstPad* pad = GST_TV_BASE_FILTER(element_)->sinkpad;
  ASSERT_NE(pad, nullptr);
  EXPECT_STREQ(GST_PAD_NAME(pad), "sink");
  g_autoptr(GstCaps) caps = gst_pad_get_pad_template_caps(pad);
  g_autofree char* text = gst_caps_to_string(caps);
  EXPECT_STREQ(text, "video/mpegts");

  GstElement* without = GST_ELEMENT(gst_object_ref_sink(new_test_filter(script_, false)));
  EXPECT_EQ(GST_TV_BASE_FILTER(without)->sinkpad, nullptr);
  EXPECT_EQ(without->numpads, 0);
  EXPECT_EQ(gst_element_set_state(without, kPlaying), kSuccess);
  EXPECT_EQ(gst_element_set_state(without, kNull), kSuccess);
  gst_object_unref(without);
}

TEST_F(State, FailedInitiateIsNotReportedOrUndone) {
  script_.fail("initiate");
  EXPECT_EQ(set(kPaused), kFailure);
  EXPECT_EQ(script_.take(), "initiate");
  EXPECT_FALSE(gst_pad_is_active(GST_TV_BASE_FILTER(element_)->sinkpad));
  script_.heal("initiate");
  EXPECT_EQ(set(kNull), kSuccess);
  EXPECT_EQ(set(kPlaying), kSuccess);
  EXPECT_EQ(script_.take(), "initiate start");
}

TEST_F(State, FailingParentLeavesInitiateDone) {
  GstPad* pad = add_source_pad(element_, false);
  EXPECT_EQ(set(kPaused), kFailure);
  EXPECT_EQ(script_.take(), "initiate destory");
  EXPECT_FALSE(gst_pad_is_active(GST_TV_BASE_FILTER(element_)->sinkpad));
  gst_element_remove_pad(element_, pad);
  EXPECT_EQ(set(kNull), kSuccess);
  EXPECT_EQ(script_.take(), "");
  EXPECT_EQ(set(kPaused), kNoPreroll);
}

TEST_F(State, FailedStartIsNotReportedOrEndsInPlaying) {
  script_.fail("start");
  EXPECT_EQ(set(kPlaying), kFailure);
  EXPECT_EQ(GST_STATE(element_), kPaused);
  EXPECT_EQ(script_.take(), "initiate start");
  script_.heal("start");
  EXPECT_EQ(set(kPlaying), kSuccess);
  EXPECT_EQ(script_.take(), "start");
}

TEST_F(State, OperationThatFailsDownwardsHoldsTheElementUp) {
  for (const char* operation : {"pause", "stop", "destory"}) script_.fail(operation);
  set(kPlaying);
  EXPECT_EQ(set(kNull), kSuccess);
  EXPECT_EQ(script_.take(), "initiate start pause stop destory");
}

TEST_F(State, DisposeForgetsWhatInitiateMade) {
  set(kPaused);
  script_.take();
  // The framework complains of an element that is dropped in PAUSED.
  const auto fatal = g_log_set_always_fatal(static_cast<GLogLevelFlags>(G_LOG_FATAL_MASK));
  const auto ignore = [](const gchar*, GLogLevelFlags, const gchar*, gpointer) {};
  const auto handler = g_log_set_handler("GStreamer", G_LOG_LEVEL_CRITICAL, ignore, nullptr);
  gst_object_unref(std::exchange(element_, nullptr));
  g_log_remove_handler("GStreamer", handler);
  g_log_set_always_fatal(fatal);
  EXPECT_EQ(script_.take(), "destory");
}

TEST_F(State, DisposeUndoesTwice) {
  set(kPlaying);
  set(kNull);
  script_.take();
  gst_object_unref(std::exchange(element_, nullptr));
  EXPECT_EQ(script_.take(), "");
}

TEST_F(State, CyclesLeakDescriptors) {
  script_.hook = [](const std::string&) { TestNode("qel_demux0").section(100); };
  const auto growth = growth_by(10, 1000, [this](unsigned i) {
    ASSERT_EQ(set(kPlaying), kSuccess);
    ASSERT_EQ(set(i % 2 == 0 ? kReady : kNull), kSuccess);
  });
  EXPECT_EQ(growth.descriptors, 0);
}

// Every operation runs in its turn, whoever asks: initiate and destory in
// pairs, the others in between.
TEST_F(State, ThreadsThatChangeTheStateMixUpOperations) {
  // READY drops the events before a buffer, of which the framework warns.
  const GLogLevelFlags fatal = g_log_set_always_fatal(G_LOG_LEVEL_ERROR);
  std::atomic<bool> up{false};
  std::atomic<int> running{0};
  std::atomic<int> wrong{0};
  script_.hook = [&](const std::string& operation) {
    if (running++ != 0) ++wrong;
    if (operation == "initiate" ? up.exchange(true) : !up) ++wrong;
    if (operation == "destory") up = false;
    --running;
  };
  std::vector<std::thread> threads;
  for (unsigned seed = 0; seed < 4; ++seed)
    threads.emplace_back([this, seed] {
      std::mt19937 random(seed);
      for (int i = 0; i < 500; ++i) set(static_cast<GstState>(kNull + random() % 4));
    });
  threads.emplace_back([this] {
    GstPad* pad = GST_TV_BASE_FILTER(element_)->sinkpad;
    const Bytes data = null_packets(10);
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_BYTES);
    for (int i = 0; i < 2000; ++i) {
      gst_pad_send_event(pad, gst_event_new_stream_start("test"));
      gst_pad_send_event(pad, gst_event_new_segment(&segment));
      gst_pad_chain(pad, gst_buffer_new_memdup(data.data(), data.size()));
      if (i % 20 == 0) gst_pad_send_event(pad, gst_event_new_eos());
      if (i % 50 == 0) gst_pad_send_event(pad, gst_event_new_flush_start());
      if (i % 50 == 5) gst_pad_send_event(pad, gst_event_new_flush_stop(TRUE));
    }
  });
  threads.emplace_back([this] {
    for (guint i = 0; i < 500; ++i)
      g_object_set(element_, "demux-id", i % 7, "demux-type", i % 3, nullptr);
  });
  for (auto& thread : threads) thread.join();
  g_log_set_always_fatal(fatal);
  EXPECT_EQ(set(kNull), kSuccess);
  EXPECT_EQ(wrong, 0);
  EXPECT_FALSE(up);
}

}  // namespace
