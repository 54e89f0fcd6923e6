// SPDX-License-Identifier: LGPL-2.1-or-later
#include <unistd.h>

#include <atomic>

#include "tests/base_filter/test_filter.h"
#include "tests/support/ts_reader.h"

namespace {

using namespace vantrel::test;

/// `source ! test filter` in a pipeline.
class EndOfStream : public testing::Test {
 protected:
  static void SetUpTestSuite() { gst_init(nullptr, nullptr); }
  void SetUp() override {
    path_ = testing::TempDir() + "vantrel-eos-" + std::to_string(getpid()) + ".ts";
    stream::save(path_, stream::text(null_packets(100)));
    pipeline_ = gst_pipeline_new(nullptr);
    bus_ = gst_element_get_bus(pipeline_);
    filter_ = new_test_filter(script_);
    gst_bin_add(GST_BIN(pipeline_), filter_);
  }
  void TearDown() override {
    gst_element_set_state(pipeline_, GST_STATE_NULL);
    gst_object_unref(bus_);
    gst_object_unref(pipeline_);
    unlink(path_.c_str());
  }

  void add_file_source() {
    GstElement* source = gst_element_factory_make("filesrc", nullptr);
    g_object_set(source, "location", path_.c_str(), nullptr);
    gst_bin_add(GST_BIN(pipeline_), source);
    ASSERT_TRUE(gst_element_link(source, filter_));
  }
  bool ends() {
    GstMessage* message = gst_bus_timed_pop_filtered(
        bus_, 60 * GST_SECOND, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    const bool ended = message != nullptr && GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS &&
                       GST_MESSAGE_SRC(message) == GST_OBJECT(pipeline_);
    if (message != nullptr) gst_message_unref(message);
    return ended;
  }
  [[nodiscard]] bool is_sink() const {
    return GST_OBJECT_FLAG_IS_SET(filter_, GST_ELEMENT_FLAG_SINK);
  }
  GstPad* sink_pad() { return GST_TV_BASE_FILTER(filter_)->sinkpad; }

  std::string path_;
  Script script_;
  GstElement* pipeline_ = nullptr;
  GstElement* filter_ = nullptr;
  GstBus* bus_ = nullptr;
};

TEST_F(EndOfStream, PipelineOfOneElementNeverEnds) {
  add_file_source();
  for (int run = 0; run < 20; ++run) {
    gst_element_set_state(pipeline_, GST_STATE_PLAYING);
    ASSERT_TRUE(ends()) << run;
    gst_element_set_state(pipeline_, run % 2 == 0 ? GST_STATE_READY : GST_STATE_NULL);
  }
}

TEST_F(EndOfStream, LiveSourceNeverEnds) {
  GstElement* source = gst_element_factory_make("appsrc", nullptr);
  if (source == nullptr) GTEST_SKIP() << "there is no appsrc";
  g_object_set(source, "is-live", TRUE, "format", GST_FORMAT_TIME, nullptr);
  gst_bin_add(GST_BIN(pipeline_), source);
  ASSERT_TRUE(gst_element_link(source, filter_));
  for (int run = 0; run < 20; ++run) {
    gst_element_set_state(pipeline_, GST_STATE_PLAYING);
    const Bytes data = null_packets(100);
    g_autoptr(GstBuffer) buffer = gst_buffer_new_memdup(data.data(), data.size());
    GstFlowReturn result = GST_FLOW_ERROR;
    g_signal_emit_by_name(source, "push-buffer", buffer, &result);
    ASSERT_EQ(result, GST_FLOW_OK);
    g_signal_emit_by_name(source, "end-of-stream", &result);
    ASSERT_TRUE(ends()) << run;
    gst_element_set_state(pipeline_, run % 2 == 0 ? GST_STATE_READY : GST_STATE_NULL);
  }
}

TEST_F(EndOfStream, EndReachedBeforePlayingIsLostOrForgottenInAPause) {
  add_file_source();
  gst_element_set_state(pipeline_, GST_STATE_PAUSED);
  ASSERT_TRUE(eventually([this] { return GST_PAD_IS_EOS(sink_pad()); }));
  gst_element_set_state(pipeline_, GST_STATE_PLAYING);
  ASSERT_TRUE(ends());
  gst_element_set_state(pipeline_, GST_STATE_PAUSED);
  gst_element_set_state(pipeline_, GST_STATE_PLAYING);
  EXPECT_TRUE(ends());
}

TEST_F(EndOfStream, NewStreamStaysAtItsEnd) {
  gst_element_set_state(pipeline_, GST_STATE_PLAYING);
  const auto start = [this] { gst_pad_send_event(sink_pad(), gst_event_new_stream_start("x")); };
  const auto end = [this] { return gst_pad_send_event(sink_pad(), gst_event_new_eos()); };
  start();
  ASSERT_TRUE(end());
  ASSERT_TRUE(ends());
  EXPECT_TRUE(is_sink());
  start();
  EXPECT_FALSE(is_sink()) << "after a new stream";
  ASSERT_TRUE(end());
  ASSERT_TRUE(ends());
  gst_pad_send_event(sink_pad(), gst_event_new_flush_start());
  gst_pad_send_event(sink_pad(), gst_event_new_flush_stop(TRUE));
  EXPECT_FALSE(is_sink()) << "after a flush";
  gst_element_set_state(pipeline_, GST_STATE_PAUSED);
  gst_element_set_state(pipeline_, GST_STATE_PLAYING);
  g_autoptr(GstMessage) stale = gst_bus_pop_filtered(bus_, GST_MESSAGE_EOS);
  EXPECT_EQ(stale, nullptr) << "the end before the flush is told again";
  start();
  ASSERT_TRUE(end());
  EXPECT_TRUE(ends());
}

TEST_F(EndOfStream, MessageLosesTheSequenceNumber) {
  gst_element_set_state(pipeline_, GST_STATE_PLAYING);
  gst_pad_send_event(sink_pad(), gst_event_new_stream_start("x"));
  GstEvent* eos = gst_event_new_eos();
  const guint32 seqnum = gst_event_get_seqnum(eos);
  gst_pad_send_event(sink_pad(), eos);
  g_autoptr(GstMessage) message =
      gst_bus_timed_pop_filtered(bus_, 60 * GST_SECOND, GST_MESSAGE_EOS);
  ASSERT_NE(message, nullptr);
  EXPECT_EQ(gst_message_get_seqnum(message), seqnum);
}

TEST_F(EndOfStream, ElementWithLinkedPadsEndsThePipelineItself) {
  GstPad* pad = add_source_pad(filter_);
  GstElement* decoder = gst_element_factory_make("fakesink", nullptr);
  g_object_set(decoder, "async", FALSE, "sync", FALSE, nullptr);
  gst_bin_add(GST_BIN(pipeline_), decoder);
  g_autoptr(GstPad) decoder_pad = gst_element_get_static_pad(decoder, "sink");
  ASSERT_EQ(gst_pad_link(pad, decoder_pad), GST_PAD_LINK_OK);
  // The event goes no further: a decoder ends when its own data does.
  gst_pad_set_event_function(sink_pad(), [](GstPad*, GstObject*, GstEvent* event) -> gboolean {
    gst_event_unref(event);
    return TRUE;
  });
  gst_element_set_state(pipeline_, GST_STATE_PLAYING);
  gst_pad_send_event(sink_pad(), gst_event_new_stream_start("x"));
  ASSERT_TRUE(gst_pad_send_event(sink_pad(), gst_event_new_eos()));
  EXPECT_FALSE(is_sink());
  g_autoptr(GstMessage) message = gst_bus_pop_filtered(bus_, GST_MESSAGE_EOS);
  EXPECT_EQ(message, nullptr);

  gst_pad_unlink(pad, decoder_pad);
  gst_bin_remove(GST_BIN(pipeline_), GST_ELEMENT(gst_object_ref(decoder)));
  gst_element_set_state(decoder, GST_STATE_NULL);
  gst_object_unref(decoder);
  gst_pad_send_event(sink_pad(), gst_event_new_stream_start("y"));
  ASSERT_TRUE(gst_pad_send_event(sink_pad(), gst_event_new_eos()));
  EXPECT_TRUE(ends()) << "with the pad unlinked it is the sink";
}

TEST_F(EndOfStream, EventFunctionOfTheSubclassMissesEvents) {
  static std::atomic<int> events;
  events = 0;
  gst_pad_set_event_function(sink_pad(), [](GstPad*, GstObject*, GstEvent* event) -> gboolean {
    ++events;
    gst_event_unref(event);
    return TRUE;
  });
  add_file_source();
  gst_element_set_state(pipeline_, GST_STATE_PLAYING);
  ASSERT_TRUE(ends());
  gst_pad_send_event(sink_pad(), gst_event_new_flush_start());
  gst_pad_send_event(sink_pad(), gst_event_new_flush_stop(TRUE));
  gst_element_set_state(pipeline_, GST_STATE_NULL);
  EXPECT_EQ(events, 5);  // stream-start, segment, EOS, flush-start and -stop
}

}  // namespace
