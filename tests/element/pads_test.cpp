// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "tests/element/decoder.h"
#include "tests/element/harness.h"

namespace vantrel::testing {
namespace {

using Lines = std::vector<std::string>;

std::string current_caps(GstElement* element, const char* name) {
  g_autoptr(GstPad) pad = gst_element_get_static_pad(element, name);
  if (pad == nullptr) return "no pad";
  g_autoptr(GstCaps) caps = gst_pad_get_current_caps(pad);
  if (caps == nullptr) return "no caps";
  return gst_structure_get_name(gst_caps_get_structure(caps, 0));
}

bool caps_are_fixed(GstElement* element, const char* name) {
  g_autoptr(GstPad) pad = gst_element_get_static_pad(element, name);
  return pad != nullptr && GST_PAD_IS_FIXED_CAPS(pad);
}

TEST(Pads, BelongToTheContentsThatHaveOne) {
  Element element(DMX_TYPE_LIVE);
  Log log;
  element.set("pids", "video:1:3/audio:2:9/pcr:3:0/video-sub:4:4/subtitle:5:29/other:6:30");
  element.set("ttx-pid", 7);
  element.set("ad-pid", 8U);
  element.go(GST_STATE_PAUSED);
  EXPECT_EQ(g_list_length(element.get()->srcpads), 5U);
  EXPECT_EQ(current_caps(element.get(), "video-src"), "video/x-hevc");  // the second video's
  EXPECT_EQ(current_caps(element.get(), "audio-src"), "audio/x-ac3");
  EXPECT_EQ(current_caps(element.get(), "subtitle-src"), "subpicture/x-dvb");
  EXPECT_EQ(current_caps(element.get(), "teletext-src"), "private/teletext");
  EXPECT_EQ(current_caps(element.get(), "audio-description-src"), "audio/x-ac3");
  for (const char* name :
       {"video-src", "audio-src", "subtitle-src", "teletext-src", "audio-description-src"})
    EXPECT_TRUE(caps_are_fixed(element.get(), name)) << name;
  EXPECT_TRUE(log.has("Unknown pad content 4"));
  EXPECT_TRUE(log.has("Unknown pad content 7"));
}

TEST(Pads, KeepTheirCapsWhenTheCodecChanges) {
  Element element(DMX_TYPE_LIVE);
  element.go(GST_STATE_PLAYING);
  element.set("pids", "video:1:3");
  element.set("pids", "video:2:4");
  EXPECT_EQ(current_caps(element.get(), "video-src"), "video/x-h264");
  EXPECT_EQ(element.get_string("pids"), "video:2/");
}

TEST(Pads, AreMadeForAllStreamsThoughHandlersAddAndRemoveSome) {
  Element element(DMX_TYPE_LIVE);
  element.set("pids", "subtitle:1:29/video:2:2/pcr:3:0");
  bool first = true;
  const auto handler = +[](GstElement* source, GstPad*, bool* is_first) {
    if (std::exchange(*is_first, false)) g_object_set(source, "sub-pid", -1, "apid", 4U, nullptr);
  };
  g_signal_connect(element.get(), "pad-added", G_CALLBACK(handler), &first);
  element.go(GST_STATE_PAUSED);
  EXPECT_EQ(current_caps(element.get(), "video-src"), "video/mpeg");
  EXPECT_EQ(current_caps(element.get(), "audio-src"), "audio/x-ac3");
  EXPECT_EQ(open_nodes(0), 3);
}

TEST(Pads, AreUsedAgainByTheNextStarts) {
  Element element(DMX_TYPE_LIVE);
  element.set("videodec-device", "vdec0");
  Decoder video;
  Decoder audio;
  const char* lists[] = {"video:1:3/audio:2:9/pcr:3:0", "video:4:2/audio:5:6/pcr:6:0",
                         "audio:7:9/video:8:4/pcr:8:0"};
  std::vector<GstPad*> pads;
  for (const char* list : lists) {
    SCOPED_TRACE(list);
    element.set("pids", list);
    element.go(GST_STATE_PLAYING);
    EXPECT_EQ(g_list_length(element.get()->srcpads), 2U);
    EXPECT_EQ(open_nodes(0), 3);
    if (pads.empty()) {
      EXPECT_TRUE(video.link(element.get(), "video-src"));
      EXPECT_TRUE(audio.link(element.get(), "audio-src"));
    }
    g_autoptr(GstPad) pad = gst_element_get_static_pad(element.get(), "video-src");
    pads.push_back(pad);
    EXPECT_EQ(pads.back(), pads.front());
    const Lines events = video.take();
    EXPECT_EQ(Lines(events.end() - 2, events.end()), (Lines{"stream-start", "caps"}));
    element.go(GST_STATE_READY);
    EXPECT_EQ(open_nodes(0), 0);
  }
}

TEST(Pads, OfAFirstVideoThatGoesAreLostByTheSecond) {
  Element element(DMX_TYPE_LIVE);
  element.go(GST_STATE_PLAYING);
  element.set("pids", "video:1:3/video-sub:2:4");
  element.set("demux-type", 3U);
  element.set("clear-pvr-record", 1U);
  EXPECT_EQ(element.get()->srcpads, nullptr);
  EXPECT_FALSE(element.state()->streams[0]->pad);
  element.set("clear-pvr-record", 2U);
  EXPECT_EQ(open_nodes(0), 0);
}

TEST(Pads, ADecoderThatRefusesCapsDisturbsNobody) {
  Element element(DMX_TYPE_LIVE);
  Decoder video;
  video.answer([](GstEvent* event) -> gboolean { return GST_EVENT_TYPE(event) != GST_EVENT_CAPS; });
  element.set("vpid", 1U);
  element.go(GST_STATE_PAUSED);
  Log log;
  EXPECT_TRUE(video.link(element.get(), "video-src"));
  EXPECT_TRUE(
      log.has("video-src: the decoder refuses video/mpeg, mpegversion=(int)2, "
              "systemstream=(boolean)false"));
  element.go(GST_STATE_PLAYING);
  video.take();
  element.set("videodec-device", "vdec0");
  element.set("video-codec-type", 1);
  const std::string codec = std::to_string(GST_MAKE_FOURCC('H', '2', '6', '4'));
  EXPECT_EQ(video.take(), Lines{"video-decode-info, videodec-device=(string)vdec0, "
                                "video-codec-type=(uint)" +
                                codec + ";"});
  EXPECT_TRUE(element.state()->streams[0]->running);
}

/// A decoder that is readied after its linking, and before the start.
TEST(Pads, TellDecodersAtTheStartWhatTheyRefusedWhenLinked) {
  for (const auto& [type, name] :
       {std::pair(DMX_TYPE_LIVE, "video-src"), std::pair(DMX_TYPE_LIVE, "subtitle-src"),
        std::pair(DMX_TYPE_DTV_RECORD, "spts_src")}) {
    SCOPED_TRACE(name);
    Element element(type);
    Decoder decoder;
    element.set("pids", "video:1:3/subtitle:2:29");
    element.go(GST_STATE_PAUSED);
    gst_pad_set_active(decoder.pad(), FALSE);
    EXPECT_TRUE(decoder.link(element.get(), name));
    gst_pad_set_active(decoder.pad(), TRUE);
    EXPECT_EQ(decoder.take(), Lines{});
    element.go(GST_STATE_PLAYING);
    EXPECT_EQ(decoder.take(), (Lines{"stream-start", "caps"}));
  }
}

/// Whoever links without asking for a reconfiguration hears of the events too.
TEST(Pads, TellDecodersThatAreLinkedWhenTheyAppear) {
  for (const GstPadLinkCheck checks :
       {GST_PAD_LINK_CHECK_DEFAULT, GST_PAD_LINK_CHECK_NO_RECONFIGURE}) {
    SCOPED_TRACE(checks);
    Element element(DMX_TYPE_LIVE);
    Decoder video;
    const auto link = [&](GstPad* pad) {
      EXPECT_EQ(gst_pad_link_full(pad, video.pad(), checks), GST_PAD_LINK_OK);
    };
    g_signal_connect(element.get(), "pad-added",
                     G_CALLBACK(+[](GstElement*, GstPad* pad, gpointer function) {
                       (*static_cast<decltype(link)*>(function))(pad);
                     }),
                     const_cast<gpointer>(static_cast<gconstpointer>(&link)));
    element.set("vpid", 1U);
    element.go(GST_STATE_PAUSED);
    EXPECT_EQ(video.take(), (Lines{"stream-start", "caps"}));
  }
}

TEST(Pads, AnswerWithTheirCapsWhileThoseAreReplaced) {
  Element element(DMX_TYPE_LIVE);
  element.set("vpid", 1U);
  element.go(GST_STATE_PAUSED);
  g_autoptr(GstPad) pad = gst_element_get_static_pad(element.get(), "video-src");
  std::atomic<bool> done{false};
  std::jthread replacer([&] {
    for (int i = 0; !done; i++) {
      g_autoptr(GstCaps) caps =
          gst_caps_new_simple("video/x-h264", "h264version", G_TYPE_INT, i, nullptr);
      gst_pad_push_event(pad, gst_event_new_caps(caps));
    }
  });
  g_autoptr(GstCaps) any = gst_caps_new_any();
  g_autoptr(GstCaps) other = gst_caps_new_empty_simple("video/x-hevc");
  for (int i = 0; i < 20000 && !::testing::Test::HasFailure(); i++) {
    g_autoptr(GstCaps) caps = gst_pad_query_caps(pad, i % 2 != 0 ? any : nullptr);
    EXPECT_TRUE(gst_caps_is_fixed(caps));
    g_autoptr(GstCaps) none = gst_pad_query_caps(pad, other);
    EXPECT_TRUE(gst_caps_is_empty(none));
  }
  done = true;
}

}  // namespace
}  // namespace vantrel::testing
