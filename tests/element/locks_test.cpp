// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "tests/element/decoder.h"
#include "tests/element/harness.h"

namespace vantrel::testing {
namespace {

constexpr const char* kAnnouncement =
    "a, video-codec=(int)3, video-pid=(int)1, audio-codec=(int)9, audio-pid=(int)2;";

TEST(Locks, SurviveLinkingAgainstWritesStartsAndStops) {
  within_limit([] {
    Element element(DMX_TYPE_LIVE);
    element.set("videodec-device", "vdec0");
    element.set("pids", "video:1:3/audio:2:9/pcr:3:0");
    element.go(GST_STATE_PLAYING);
    std::atomic<bool> done{false};
    std::jthread linker([&] {
      Decoder video;
      Decoder audio;
      while (!done) {
        video.link(element.get(), "video-src");
        audio.link(element.get(), "audio-src");
        video.unlink();
        audio.unlink();
      }
    });
    std::jthread writer([&] {
      for (guint i = 0; !done; i++) {
        element.set("vpid", 100 + i % 5);
        element.set("apid", 200 + i % 5);
        element.set("ad-pid", 300U);
        element.set("ad-mode", FALSE);
        g_free(g_strdup(element.get_string("pids").c_str()));
      }
    });
    for (int i = 0; i < 30; i++) {
      element.go(GST_STATE_READY);
      element.go(GST_STATE_PLAYING);
    }
    done = true;
  });
}

/// What repeats a stream's own PID must not repeat one that a zap has replaced.
TEST(Locks, NamingADecoderDoesNotUndoAZap) {
  within_limit([] {
    Element element(DMX_TYPE_LIVE);
    element.set("vpid", 1U);
    element.go(GST_STATE_PLAYING);
    Log log;  // slow to write to, which leaves the zap its time
    std::atomic<bool> done{false};
    std::atomic<int> named{0};
    std::jthread namer([&] {
      for (; !done; named++) element.set("videodec-device", "vdec0");
    });
    for (guint pid = 1; pid <= 200 && !::testing::Test::HasFailure(); pid++) {
      element.set("vpid", pid);
      const int before = named;
      EXPECT_TRUE(eventually([&] { return named >= before + 2; }));
      EXPECT_EQ(element.get_string("pids"), "video:" + std::to_string(pid) + "/");
      log.take();
    }
    done = true;
  });
}

/// The event of the start among others: a thread that zaps must not have to wait
/// for the decoder that waits for it.
TEST(Locks, ADecoderMayWaitForAZapDuringTheStart) {
  within_limit([] {
    Element element(DMX_TYPE_LIVE);
    element.set("pids", "video:1:3/audio:2:9");
    element.set("ad-pid", 3U);
    element.go(GST_STATE_PAUSED);
    Decoder description;
    EXPECT_TRUE(description.link(element.get(), "audio-description-src"));
    int answers = 0;
    description.answer([&](GstEvent*) -> gboolean {
      answers++;
      std::thread([&] { element.set("apid", 7U); }).join();
      return TRUE;
    });
    element.go(GST_STATE_PLAYING);
    EXPECT_EQ(answers, 1);
    EXPECT_EQ(element.get_string("pids"), "video:1/audio:7/");
  });
}

TEST(Locks, ADecoderMayHoldItsOwnLockWhileItSendsUpstream) {
  within_limit([] {
    Element element(DMX_TYPE_PVR_PLAYBACK);
    Upstream upstream(element.get());
    element.set("videodec-device", "vdec0");
    element.set("pids", "video:1:3/audio:2:9");
    element.go(GST_STATE_PLAYING);
    Decoder video;
    std::mutex decoder_lock;
    video.answer([&](GstEvent*) -> gboolean {
      std::lock_guard lock(decoder_lock);
      return TRUE;
    });
    EXPECT_TRUE(video.link(element.get(), "video-src"));
    std::jthread sender([&] {
      for (int i = 0; i < 500; i++) {
        std::lock_guard lock(decoder_lock);
        video.send_custom(i % 2 != 0 ? "x, dmx-stop=(boolean)true;"
                                     : "x, dvr-stop=(boolean)false;");
      }
    });
    for (int i = 0; i < 200; i++) element.set("video-codec-type", i % 5);
  });
}

TEST(Locks, SurviveSeeksAgainstAnnouncements) {
  within_limit([] {
    Element element(DMX_TYPE_PVR_PLAYBACK);
    Upstream upstream(element.get());
    element.go(GST_STATE_PLAYING);
    upstream.announce(kAnnouncement);
    Decoder audio;
    EXPECT_TRUE(audio.link(element.get(), "audio-src"));
    std::jthread seeker([&] {
      for (int i = 0; i < 300; i++) audio.seek();
    });
    for (int i = 0; i < 300; i++) {
      upstream.announce(kAnnouncement);
      upstream.send(gst_event_new_flush_start());
      upstream.send(gst_event_new_flush_stop(TRUE));
    }
  });
}

TEST(Locks, ABlockedPadDoesNotHoldTheWayDown) {
  within_limit([] {
    Element element(DMX_TYPE_LIVE);
    element.set("pids", "video:1:3/video-sub:2:4");
    element.go(GST_STATE_PLAYING);
    Decoder video;
    EXPECT_TRUE(video.link(element.get(), "video-src"));
    g_autoptr(GstPad) pad = gst_element_get_static_pad(element.get(), "video-src");
    gst_pad_add_probe(
        pad, GST_PAD_PROBE_TYPE_BLOCK_DOWNSTREAM,
        [](GstPad*, GstPadProbeInfo*, gpointer) { return GST_PAD_PROBE_OK; }, nullptr, nullptr);
    std::jthread pusher([&] { element.set("videodec-device-sub", "vdec1"); });
    std::jthread changer([&] { element.set("vpid-sub", 3U); });
    element.go(GST_STATE_NULL);
  });
}

TEST(Locks, TenThousandZapsLeaveNothingBehind) {
  within_limit([] {
    Element element(DMX_TYPE_LIVE);
    element.set("videodec-device", "vdec0");
    element.go(GST_STATE_PLAYING);
    const auto growth = growth_by(200, 10000, [&](guint i) {
      element.set("vpid", 100 + i % 10);
      element.set("apid", 200 + i % 10);
      element.set("pcr-pid", 100 + i % 10);
      element.set("sub-pid", static_cast<gint>(300 + i % 10));
      if (i % 50 == 0) element.set("sub-pid", -1);
    });
    EXPECT_EQ(growth.descriptors, 0);
    EXPECT_LT(growth.bytes, 8 << 20);
    EXPECT_EQ(g_list_length(element.get()->srcpads), 3U);
  });
}

}  // namespace
}  // namespace vantrel::testing
