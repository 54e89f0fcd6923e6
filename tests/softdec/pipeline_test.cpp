// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gst/gst.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "plugin/gstvantrel.h"
#include "softdec/decoder.h"
#include "softdec/element.h"
#include "softdec/recorder.h"
#include "softdec/subtitles.h"
#include "tests/support/ts_builder.h"
#include "tests/support/ts_reader.h"

/// The elements behind the real demultiplexer and the real receiver.
namespace softdec {
namespace {

using stream::Bytes;
using stream::operator+;
using stream::operator+=;

constexpr unsigned kVideo = 0x100, kAudio = 0x101, kSecond = 0x102, kText = 0x103;
constexpr GstClockTime kPatience = 60 * GST_SECOND;

/// The process's own: tests run side by side.
std::string sample_file() { return "softdec-sample-" + std::to_string(getpid()) + ".ts"; }

/// Pictures and sound of a second and more, and what belongs on each pad.
struct Sample {
  Bytes packets;
  std::map<std::string, Bytes> expected;
};

const Sample& sample() {
  static const Sample made = [] {
    Sample all;
    stream::Multiplex mux;
    for (unsigned i = 0; i < 40; ++i) {
      const std::uint64_t stamp = 90000 + i * 3600;
      all.packets += mux.unit(kVideo, stream::pes_with_pts(0xE0, stamp, 3000 + i, false));
      all.packets += mux.unit(kSecond, stream::pes_with_pts(0xE0, stamp + 1800, 900 + i, true));
      all.packets += mux.unit(kAudio, stream::pes_with_pts(0xC0, stamp - 9000, 700 + i, true));
      if (i == 10) {
        Bytes subtitle = stream::pes_with_pts(0xBD, stamp, 300, true);
        subtitle[subtitle.size() - 300] = 0x20;
        all.packets += mux.unit(kText, subtitle);
        all.expected["text"] = Bytes(subtitle.end() - 300, subtitle.end());
      }
      all.expected["video"] += stream::counting(3000 + i, 0xE0);
      all.expected["both"] += stream::counting(3000 + i, 0xE0) + stream::counting(900 + i, 0xE0);
      all.expected["audio"] += stream::counting(700 + i, 0xC0);
    }
    stream::save(sample_file(), stream::text(all.packets));
    return all;
  }();
  return made;
}

class SoftDecoders : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    gst_element_register(nullptr, "vantrel", GST_RANK_NONE, gst_vantrel_get_type());
    for (const Kind* kind : {&kVideoDecoder, &kAudioDecoder, &kSubtitles, &kRecorder})
      register_element(nullptr, *kind);
    sample();
  }
  static void TearDownTestSuite() { std::remove(sample_file().c_str()); }
  void TearDown() override { drop(); }

  void drop() {
    if (pipeline_ == nullptr) return;
    gst_element_set_state(pipeline_, GST_STATE_NULL);
    gst_object_unref(std::exchange(pipeline_, nullptr));
  }

  /// A pipeline behind the sample; sinks "v" and "a" collect what comes.
  void build(const std::string& demux, const std::string& rest) {
    drop();
    g_autoptr(GError) error = nullptr;
    pipeline_ = gst_parse_launch(
        ("filesrc name=file location=" + sample_file() + " ! vantrel name=d " + demux + " " + rest)
            .c_str(),
        &error);
    ASSERT_EQ(error, nullptr) << error->message;
    for (const char* name : {"v", "a"})
      if (GstElement* sink = gst_bin_get_by_name(GST_BIN(pipeline_), name)) {
        g_object_set(sink, "signal-handoffs", TRUE, nullptr);
        g_signal_connect(sink, "handoff", G_CALLBACK(on_buffer), this);
        gst_object_unref(sink);
      }
  }

  void go(GstState state) { gst_element_set_state(pipeline_, state); }

  GstMessageType wait() {
    g_autoptr(GstBus) bus = gst_element_get_bus(pipeline_);
    g_autoptr(GstMessage) message = gst_bus_timed_pop_filtered(
        bus, kPatience, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    return message != nullptr ? GST_MESSAGE_TYPE(message) : GST_MESSAGE_UNKNOWN;
  }

  Bytes take(const std::string& sink) {
    const std::lock_guard lock(mutex_);
    first_.clear();
    return std::exchange(bytes_[sink], {});
  }

  GstElement* pipeline_ = nullptr;
  std::mutex mutex_;
  std::map<std::string, Bytes> bytes_;         // mutex_
  std::map<std::string, GstClockTime> first_;  // mutex_

 private:
  static void on_buffer(GstElement* sink, GstBuffer* buffer, GstPad*, gpointer data) {
    auto* self = static_cast<SoftDecoders*>(data);
    Bytes bytes(gst_buffer_get_size(buffer));
    gst_buffer_extract(buffer, 0, bytes.data(), bytes.size());
    const std::lock_guard lock(self->mutex_);
    self->first_.try_emplace(GST_OBJECT_NAME(sink), GST_BUFFER_PTS(buffer));
    self->bytes_[GST_OBJECT_NAME(sink)] += bytes;
  }
};

constexpr const char* kPlay =
    "demux-type=1 videodec-device=vdec0 pids=video:256:3/audio:257:6/pcr:256:0";
constexpr const char* kBoth =
    "d.video-src ! qelvideodec name=vd ! fakesink name=v sync=false "
    "d.audio-src ! qelaudiodec ! fakesink name=a sync=false";

TEST_F(SoftDecoders, GiveAllThatIsSentOnOneTimeline) {
  build(kPlay, kBoth);
  go(GST_STATE_PLAYING);
  ASSERT_EQ(wait(), GST_MESSAGE_EOS);
  {
    const std::lock_guard lock(mutex_);
    EXPECT_EQ(first_["v"] - first_["a"], 100 * GST_MSECOND);
  }
  EXPECT_TRUE(take("v") == sample().expected.at("video"));
  EXPECT_TRUE(take("a") == sample().expected.at("audio"));
}

TEST_F(SoftDecoders, GiveSubtitlesTheTimeOfTheirPictures) {
  build("demux-type=1 videodec-device=vdec0 pids=video:256:3/subtitle:259:29/pcr:256:0",
        "d.video-src ! qelvideodec ! fakesink name=v sync=false "
        "d.subtitle-src ! qelsubtitle ! fakesink name=a sync=false async=false");
  go(GST_STATE_PLAYING);
  ASSERT_EQ(wait(), GST_MESSAGE_EOS);
  {
    // Pictures begin an hour into their segment, subtitles at its beginning.
    const std::lock_guard lock(mutex_);
    EXPECT_EQ(first_["v"] + 400 * GST_MSECOND - first_["a"], 3600 * GST_SECOND);
  }
  EXPECT_TRUE(take("a") == sample().expected.at("text"));
}

TEST_F(SoftDecoders, StartAgainAfterASeekAndTheEnd) {
  build(kPlay, kBoth);
  go(GST_STATE_PLAYING);
  // By the pipeline each sink would seek, and what came in between be seen twice.
  g_autoptr(GstElement) file = gst_bin_get_by_name(GST_BIN(pipeline_), "file");
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(wait(), GST_MESSAGE_EOS);
    EXPECT_TRUE(take("v") == sample().expected.at("video"));
    EXPECT_TRUE(take("a") == sample().expected.at("audio"));
    if (i < 2) {
      ASSERT_TRUE(gst_element_seek_simple(file, GST_FORMAT_BYTES, GST_SEEK_FLAG_FLUSH, 0));
    }
  }
}

TEST_F(SoftDecoders, MergeTheTwoPidsOfAHighFrameRate) {
  build(kPlay, kBoth);
  go(GST_STATE_READY);
  g_autoptr(GstElement) demux = gst_bin_get_by_name(GST_BIN(pipeline_), "d");
  go(GST_STATE_PAUSED);
  g_object_set(demux, "vpid-sub", kSecond, "videodec-device-sub", "vdec1", nullptr);
  go(GST_STATE_PLAYING);
  ASSERT_EQ(wait(), GST_MESSAGE_EOS);
  EXPECT_TRUE(take("v") == sample().expected.at("both"));
}

TEST_F(SoftDecoders, TakeTheCodecThatTheDemultiplexerNames) {
  build(kPlay, kBoth);
  go(GST_STATE_PAUSED);
  g_autoptr(GstElement) demux = gst_bin_get_by_name(GST_BIN(pipeline_), "d");
  g_object_set(demux, "video-codec-type", 4, nullptr);
  go(GST_STATE_PLAYING);
  ASSERT_EQ(wait(), GST_MESSAGE_EOS);
  g_autoptr(GstElement) decoder = gst_bin_get_by_name(GST_BIN(pipeline_), "vd");
  g_autoptr(GstPad) pad = gst_element_get_static_pad(decoder, "src");
  g_autoptr(GstCaps) caps = gst_pad_get_current_caps(pad);
  ASSERT_NE(caps, nullptr);
  EXPECT_STREQ(gst_structure_get_name(gst_caps_get_structure(caps, 0)), "video/x-h265");
}

TEST_F(SoftDecoders, EndWhileASinkWaitsAndAPadIsBlocked) {
  for (const GstState last : {GST_STATE_READY, GST_STATE_PAUSED, GST_STATE_PLAYING})
    for (const bool blocked : {false, true}) {
      build(kPlay,
            "d.video-src ! qelvideodec name=vd ! fakesink name=v sync=true "
            "d.audio-src ! qelaudiodec ! fakesink name=a sync=true");
      g_autoptr(GstElement) decoder = gst_bin_get_by_name(GST_BIN(pipeline_), "vd");
      g_autoptr(GstPad) pad = gst_element_get_static_pad(decoder, "src");
      const auto hold = [](GstPad*, GstPadProbeInfo*, gpointer) { return GST_PAD_PROBE_OK; };
      if (blocked)
        gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BLOCK_DOWNSTREAM, hold, nullptr, nullptr);
      go(last);
      go(GST_STATE_NULL);
      EXPECT_EQ(GST_STATE(pipeline_), GST_STATE_NULL);
    }
}

TEST_F(SoftDecoders, GoOnAfterTheirLinkWasCutAndMadeAgain) {
  build(kPlay, kBoth);
  go(GST_STATE_PAUSED);
  g_autoptr(GstElement) demux = gst_bin_get_by_name(GST_BIN(pipeline_), "d");
  g_autoptr(GstElement) decoder = gst_bin_get_by_name(GST_BIN(pipeline_), "vd");
  for (int i = 0; i < 20; ++i) {
    gst_element_unlink_pads(demux, "video-src", decoder, "sink");
    ASSERT_TRUE(gst_element_link_pads(demux, "video-src", decoder, "sink"));
  }
  go(GST_STATE_PLAYING);
  ASSERT_EQ(wait(), GST_MESSAGE_EOS);
  EXPECT_TRUE(take("v") == sample().expected.at("video"));
}

TEST_F(SoftDecoders, SayThatNoDecoderIsNamed) {
  build("demux-type=1 pids=video:256:3", "d.video-src ! qelvideodec ! fakesink name=v");
  go(GST_STATE_PLAYING);
  EXPECT_EQ(wait(), GST_MESSAGE_ERROR);
}

TEST_F(SoftDecoders, RecordWithoutLoss) {
  build("demux-type=3 pids=other:8192:30", "! qelrecord ! fakesink name=v sync=false");
  go(GST_STATE_PLAYING);
  ASSERT_EQ(wait(), GST_MESSAGE_EOS);
  EXPECT_TRUE(take("v") == sample().packets);
}

}  // namespace
}  // namespace softdec
