// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gtest/gtest.h>
#include <qel/receiver.h>

#include <future>
#include <thread>

#include "tests/element/decoder.h"
#include "tests/element/harness.h"

namespace vantrel::testing {
namespace {

constexpr const char* kAnnouncement =
    "a, video-codec=(int)3, video-pid=(int)1, audio-codec=(int)9, audio-pid=(int)2;";

/// The PIDs of a demux's nodes, those that do not run as negative numbers.
std::multiset<int> filters(unsigned demux) {
  std::multiset<int> pids;
  const auto note = [](const qel_node_counters* node, void* set) {
    const int pid = static_cast<int>(node->pid);
    static_cast<std::multiset<int>*>(set)->insert(node->running != 0 ? pid : -pid);
  };
  qel_receiver_foreach_node(demux, note, &pids);
  return pids;
}

TEST(Locks, SurviveLinkingAgainstWritesStartsAndStops) {
  within_limit([] {
    Element element(DMX_TYPE_LIVE);
    element.set("videodec-device", "vdec0");
    element.go(GST_STATE_READY);
    const std::size_t descriptors = open_descriptors();
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
    linker.join();
    writer.join();
    // What the writer wrote last may be of the time before the last start.
    for (const guint last : {9U, 10U}) {
      element.set("vpid", 100 + last);
      element.set("apid", 200 + last);
    }
    element.set("ad-mode", FALSE);
    EXPECT_EQ(filters(0), (std::multiset<int>{110, 210}));
    element.go(GST_STATE_READY);
    EXPECT_EQ(open_descriptors(), descriptors);
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

/// Its event function takes that lock too: while the element waits there, whatever
/// it does, the decoder must get through with what it sends.
TEST(Locks, ADecoderMayHoldItsOwnLockWhileItSendsUpstream) {
  within_limit([] {
    Element element(DMX_TYPE_PVR_PLAYBACK);
    Upstream upstream(element.get());
    element.set("videodec-device", "vdec0");
    element.set("vpid", 1U);
    element.go(GST_STATE_PAUSED);
    Decoder video;
    std::mutex decoder_lock;
    int answers = 0;
    video.answer([&](GstEvent*) -> gboolean {
      std::promise<void> locked;
      std::jthread sender([&] {
        std::lock_guard lock(decoder_lock);
        locked.set_value();
        for (const char* event : {"x, dmx-stop=(boolean)true;", "x, dvr-stop=(boolean)false;",
                                  "x, dmx-seek-audio=(boolean)true;", "x, other=(int)1;"})
          video.send_custom(event);
        video.seek();
      });
      locked.get_future().wait();
      std::lock_guard lock(decoder_lock);
      answers++;
      return TRUE;
    });
    const std::pair<const char*, std::function<void()>> cases[] = {
        {"link", [&] { EXPECT_TRUE(video.link(element.get(), "video-src")); }},
        {"decoder's codec", [&] { element.set("video-codec-type", 1); }},
        {"second video", [&] { element.set("vpid-sub", 4U); }},
        {"upstream's start", [&] { upstream.start_of_stream(); }},
        {"stop and start",
         [&] {
           element.go(GST_STATE_READY);
           element.set("vpid", 2U);
           element.go(GST_STATE_PLAYING);
         }},
    };
    for (const auto& [name, act] : cases) {
      SCOPED_TRACE(name);
      answers = 0;
      act();
      EXPECT_GT(answers, 0);
    }
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
