// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <thread>

#include "tests/element/decoder.h"
#include "tests/element/harness.h"

/// How pads meet the rest of a pipeline: streams and groups, bins, blocked pads,
/// pads that outlive their stream. Warnings of the framework are fatal here.
namespace vantrel::testing {
namespace {

using Lines = std::vector<std::string>;

GstEvent* stored(GstElement* element, const char* name, GstEventType type) {
  g_autoptr(GstPad) pad = gst_element_get_static_pad(element, name);
  return pad != nullptr ? gst_pad_get_sticky_event(pad, type, 0) : nullptr;
}

/// Group of the stream on a pad; 0 when it has none.
guint group_of(GstElement* element, const char* name) {
  g_autoptr(GstEvent) event = stored(element, name, GST_EVENT_STREAM_START);
  guint group_id = 0;
  if (event != nullptr) gst_event_parse_group_id(event, &group_id);
  return group_id;
}

std::string stream_id_of(GstElement* element, const char* name) {
  g_autoptr(GstEvent) event = stored(element, name, GST_EVENT_STREAM_START);
  const gchar* id = "";
  if (event != nullptr) gst_event_parse_stream_start(event, &id);
  return id;
}

GstEvent* stream_start(const char* id, guint group_id) {
  GstEvent* event = gst_event_new_stream_start(id);
  if (group_id != 0) gst_event_set_group_id(event, group_id);
  return event;
}

/// One that the framework's own counting does not come to.
constexpr guint kUpstreamsGroup = 0x7FFFFFF0;

TEST(StreamStart, PutsAllPadsOfAnElementIntoOneGroupUnderItsName) {
  Element element(DMX_TYPE_LIVE);
  Upstream upstream(element.get());
  const auto expect_one_group = [&] {
    const guint group_id = group_of(element.get(), "video-src");
    EXPECT_NE(group_id, 0U);
    EXPECT_EQ(group_of(element.get(), "audio-src"), group_id);
    EXPECT_EQ(group_of(element.get(), "teletext-src"), group_id);
    return group_id;
  };
  element.set("pids", "video:1:3/audio:2:9");
  element.go(GST_STATE_PLAYING);
  element.set("ttx-pid", 3);
  const guint own = expect_one_group();
  upstream.send(stream_start("first", kUpstreamsGroup));
  EXPECT_EQ(expect_one_group(), kUpstreamsGroup);
  EXPECT_EQ(stream_id_of(element.get(), "video-src"), "first/video-src");
  element.set("ttx-pid", 3);
  upstream.send(stream_start("second", 0));
  EXPECT_EQ(stream_id_of(element.get(), "audio-src"), "second/audio-src");
  element.set("ad-pid", 4U);
  EXPECT_NE(expect_one_group(), kUpstreamsGroup);
  EXPECT_EQ(group_of(element.get(), "audio-description-src"), expect_one_group());
  element.go(GST_STATE_READY);
  element.set("pids", "video:1:3/audio:2:9");
  element.set("ttx-pid", 3);
  element.go(GST_STATE_PAUSED);
  EXPECT_NE(expect_one_group(), own);
}

/// A pad whose stream has gone gets upstream's events as every pad does. A
/// stream that takes it then must not find them out of order.
TEST(LeftPad, IsTakenByAStreamInTheMiddleOfARun) {
  Element element(DMX_TYPE_LIVE);
  Upstream upstream(element.get());
  element.set("pids", "video:1:3/audio:2:9");
  element.go(GST_STATE_PLAYING);
  Decoder audio;
  EXPECT_TRUE(audio.link(element.get(), "audio-src"));
  element.go(GST_STATE_READY);
  element.set("vpid", 4U);
  element.go(GST_STATE_PLAYING);
  upstream.start_of_stream();
  EXPECT_EQ(audio.take().back(), "segment");
  element.set("apid", 5U);
  EXPECT_EQ(audio.take(), (Lines{"stream-start", "caps"}));
  upstream.send(gst_event_new_eos());
  EXPECT_EQ(audio.take(), Lines{"eos"});
}

TEST(LeftPad, OfTheRecorderStartsAgainWithTheElement) {
  Element element(DMX_TYPE_DTV_RECORD);
  Upstream upstream(element.get());
  element.set("vpid", 1U);
  element.go(GST_STATE_PAUSED);
  Decoder recorder;
  EXPECT_TRUE(recorder.link(element.get(), "spts_src"));
  for (int run = 0; run < 3; run++) {
    SCOPED_TRACE(run);
    element.go(GST_STATE_PLAYING);
    recorder.take();
    upstream.start_of_stream();
    EXPECT_EQ(recorder.take(), (Lines{"stream-start", "segment"}));
    EXPECT_EQ(stream_id_of(element.get(), "spts_src"), "file/spts_src");
    element.go(GST_STATE_READY);
    element.set("vpid", 1U);
    element.go(GST_STATE_PAUSED);
    EXPECT_EQ(recorder.take(), (Lines{"stream-start", "caps"}));
  }
}

TEST(LateLink, BringsEverythingThatPassedBefore) {
  Element element(DMX_TYPE_LIVE);
  Upstream upstream(element.get());
  element.set("pids", "video:1:3/audio:2:9");
  element.go(GST_STATE_PLAYING);
  upstream.start_of_stream();
  Decoder video;
  EXPECT_TRUE(video.link(element.get(), "video-src"));
  EXPECT_EQ(video.take(), (Lines{"stream-start", "caps", "segment"}));
  upstream.send(gst_event_new_eos());
  EXPECT_EQ(video.take(), Lines{"eos"});
  Decoder audio;
  EXPECT_TRUE(audio.link(element.get(), "audio-src"));
  EXPECT_EQ(audio.take(), (Lines{"stream-start", "caps", "segment", "eos"}));
  Decoder subtitle;
  element.set("sub-pid", 3);
  EXPECT_TRUE(subtitle.link(element.get(), "subtitle-src"));
  EXPECT_EQ(subtitle.take(), (Lines{"stream-start", "caps", "segment", "eos"}));
}

/// The element in a bin of its own, whose pads are the element's.
class Bin {
 public:
  explicit Bin(Element& element) : bin_(GST_ELEMENT(gst_object_ref_sink(gst_bin_new(nullptr)))) {
    gst_bin_add(GST_BIN(bin_), GST_ELEMENT(gst_object_ref(element.get())));
    g_signal_connect(element.get(), "pad-added",
                     G_CALLBACK(+[](GstElement*, GstPad* pad, GstElement* bin) {
                       GstPad* ghost = gst_ghost_pad_new(GST_PAD_NAME(pad), pad);
                       gst_pad_set_active(ghost, TRUE);
                       gst_element_add_pad(bin, ghost);
                     }),
                     bin_);
  }
  ~Bin() {
    gst_element_set_state(bin_, GST_STATE_NULL);
    gst_object_unref(bin_);
  }
  Bin(const Bin&) = delete;
  Bin& operator=(const Bin&) = delete;

  [[nodiscard]] GstElement* get() const { return bin_; }

 private:
  GstElement* bin_;
};

TEST(GhostPad, TellsLateDecodersWhatTheyMissed) {
  Element element(DMX_TYPE_LIVE);
  Bin bin(element);
  element.set("pids", "video:1:3/audio:2:9");
  gst_element_set_state(bin.get(), GST_STATE_PAUSED);
  Decoder video;
  EXPECT_TRUE(video.link(bin.get(), "video-src"));
  EXPECT_EQ(video.take(), (Lines{"stream-start", "caps"}));
  gst_element_set_state(bin.get(), GST_STATE_PLAYING);
  Decoder audio;
  EXPECT_TRUE(audio.link(bin.get(), "audio-src"));
  EXPECT_EQ(audio.take(), (Lines{"stream-start", "caps"}));
  element.set("video-codec-type", 1);
  element.set("videodec-device", "vdec0");
  element.set("video-codec-type", 1);
  EXPECT_EQ(video.take().size(), 1U);
}

/// Blocks the pad; gives the probe.
gulong block(GstPad* pad) {
  const auto keep = [](GstPad*, GstPadProbeInfo*, gpointer) { return GST_PAD_PROBE_OK; };
  return gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BLOCK_DOWNSTREAM, keep, nullptr, nullptr);
}

/// Waits for just these events, in any order. Where several threads push at once, what
/// is stored on a pad may come again.
void expect_events(Decoder& decoder, const std::set<std::string>& expected) {
  std::set<std::string> events;
  EXPECT_TRUE(eventually([&] {
    for (const std::string& event : decoder.take()) events.insert(event);
    return std::includes(events.begin(), events.end(), expected.begin(), expected.end());
  }));
  EXPECT_EQ(events, expected);
}

/// Blocks pads as they appear, the way autopluggers do.
struct Blocker {
  explicit Blocker(Element& element) {
    g_signal_connect(element.get(), "pad-added",
                     G_CALLBACK(+[](GstElement*, GstPad* pad, Blocker* self) {
                       self->pads.push_back(PadRef::share(pad));
                       self->ids.push_back(block(pad));
                     }),
                     this);
  }
  void release() {
    for (std::size_t i = 0; i < pads.size(); i++) gst_pad_remove_probe(pads[i].get(), ids[i]);
  }

  std::vector<PadRef> pads;
  std::vector<gulong> ids;
};

TEST(BlockedPad, HoldsNeitherTheStartNorALink) {
  within_limit([] {
    Element element(DMX_TYPE_LIVE);
    Blocker blocker(element);
    element.set("pids", "video:1:3/audio:2:9");
    element.set("ad-pid", 4U);
    element.go(GST_STATE_PAUSED);
    element.set("ttx-pid", 3);
    Decoder video;
    Decoder description;
    Decoder teletext;
    EXPECT_TRUE(video.link(element.get(), "video-src"));
    EXPECT_TRUE(description.link(element.get(), "audio-description-src"));
    element.go(GST_STATE_PLAYING);
    EXPECT_TRUE(teletext.link(element.get(), "teletext-src"));
    EXPECT_EQ(video.take(), Lines{});
    blocker.release();
    expect_events(video, {"stream-start", "caps"});
    expect_events(teletext, {"stream-start", "caps"});
    expect_events(description,
                  {"stream-start", "caps", "codec-info, audio-codec-sub=(boolean)true;"});
  });
}

TEST(BlockedPad, HoldsNeitherTheWayDownNorTheNextStart) {
  within_limit([] {
    Element element(DMX_TYPE_LIVE);
    Blocker blocker(element);
    for (int run = 0; run < 3; run++) {
      element.set("pids", "video:1:3/audio:2:9");
      element.go(GST_STATE_PLAYING);
      element.go(run % 2 != 0 ? GST_STATE_NULL : GST_STATE_READY);
    }
  });
}

/// By a probe on the pad of a bin, or on the decoder's own.
TEST(BlockedPad, BehindTheElementHoldsNeitherTheStartNorALink) {
  for (const bool at_bin : {true, false}) {
    within_limit([at_bin] {
      Element element(DMX_TYPE_LIVE);
      Bin bin(element);
      element.set("pids", "video:1:3/audio:2:9");
      element.set("ad-pid", 4U);
      gst_element_set_state(bin.get(), GST_STATE_PAUSED);
      Decoder decoder;
      g_autoptr(GstPad) pad = gst_element_get_static_pad(bin.get(), "audio-description-src");
      GstPad* blocked = at_bin ? pad : decoder.pad();
      gulong probe = block(blocked);
      EXPECT_TRUE(decoder.link(bin.get(), "audio-description-src"));
      gst_element_set_state(bin.get(), GST_STATE_PLAYING);
      EXPECT_EQ(decoder.take(), Lines{});
      gst_pad_remove_probe(blocked, probe);
      expect_events(decoder,
                    {"stream-start", "caps", "codec-info, audio-codec-sub=(boolean)true;"});
      probe = block(blocked);
      for (const GstState state : {GST_STATE_READY, GST_STATE_PLAYING, GST_STATE_NULL}) {
        element.set("ad-pid", 5U);
        // Before the bin, as pipelines do: what waits in the decoder holds the bin's pad.
        gst_pad_set_active(decoder.pad(), state == GST_STATE_PLAYING);
        gst_element_set_state(bin.get(), state);
      }
      gst_pad_remove_probe(blocked, probe);
    });
  }
}

TEST(RemovedPad, IsRemovedOnceThoughItsHandlerRemovesTheStreamAgain) {
  Element element(DMX_TYPE_LIVE);
  int removals = 0;
  g_signal_connect(element.get(), "pad-removed",
                   G_CALLBACK(+[](GstElement* source, GstPad*, int* count) {
                     if ((*count)++ == 0) g_object_set(source, "sub-pid", -1, nullptr);
                   }),
                   &removals);
  element.set("pids", "video:1:3/subtitle:2:29");
  element.go(GST_STATE_PLAYING);
  element.set("sub-pid", -1);
  EXPECT_EQ(removals, 1);
  EXPECT_EQ(element.get()->numsrcpads, 1);
}

/// The handler of "pad-added" drops the stream whose pad it is told of.
TEST(RemovedPad, IsNotLeftBehindByAStreamThatItsHandlerRemoves) {
  Element element(DMX_TYPE_LIVE);
  g_signal_connect(element.get(), "pad-added", G_CALLBACK(+[](GstElement* source, GstPad*) {
                     g_object_set(source, "sub-pid", -1, nullptr);
                   }),
                   nullptr);
  element.go(GST_STATE_PLAYING);
  element.set("sub-pid", 2);
  EXPECT_EQ(element.get_string("pids"), "");
  EXPECT_EQ(element.get()->numsrcpads, 0);
  EXPECT_EQ(open_nodes(0), 0);
}

}  // namespace
}  // namespace vantrel::testing
