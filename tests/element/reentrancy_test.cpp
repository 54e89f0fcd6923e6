// SPDX-License-Identifier: LGPL-2.1-or-later
//
// What an application may call from where the element calls it: every call of
// docs/reentrancy.md from every place of it.
#include <gtest/gtest.h>
#include <qel/receiver.h>

#include <algorithm>
#include <cstring>
#include <future>
#include <span>
#include <thread>

#include "plugin/lifecycle.h"
#include "readers/temi_reader.h"
#include "tests/element/decoder.h"
#include "tests/element/harness.h"
#include "tests/support/ts_builder.h"

namespace vantrel::testing {
namespace {

constexpr guint kSections = 0x50;
constexpr gint kSubtitles = 0x51;

/// A playing element between its neighbours, and code to run in some place of it.
struct Scene {
  Scene() {
    element.set("videodec-device", "vdec0");
    element.set("pids", "video:1:3/audio:2:9/pcr:1:0");
    element.set("sub-pid", kSubtitles);
    element.set("ad-pid", 3U);
    filter = element.add(kSections, 0x42);
    other = element.add(kSections + 9, 0x42);
    element.go(GST_STATE_PAUSED);
    EXPECT_TRUE(video.link(element.get(), "video-src"));
    EXPECT_TRUE(audio.link(element.get(), "audio-src"));
    EXPECT_TRUE(description.link(element.get(), "audio-description-src"));
  }
  /// Runs the action, the first time.
  void here() {
    if (entered.exchange(true)) return;
    action();
    done = true;
  }
  void in_deliveries() {
    element.on_delivery([this](const Delivery&) { here(); });
  }
  /// In the event function of a decoder, on a custom event that has `part`.
  void in_events_of(Decoder& decoder, const char* part) {
    decoder.answer([this, part](GstEvent* event) -> gboolean {
      const GstStructure* structure = gst_event_get_structure(event);
      g_autofree gchar* fields =
          structure != nullptr ? gst_structure_to_string(structure) : nullptr;
      if (fields != nullptr && std::strstr(fields, part) != nullptr) here();
      return TRUE;
    });
  }
  /// In the event function of the element upstream.
  void in_upstream_events() {
    g_autoptr(GstPad) sink = gst_element_get_static_pad(element.get(), "sink");
    g_autoptr(GstPad) peer = gst_pad_get_peer(sink);
    const auto probe = [](GstPad*, GstPadProbeInfo*, gpointer self) {
      static_cast<Scene*>(self)->here();
      return GST_PAD_PROBE_OK;
    };
    gst_pad_add_probe(peer, GST_PAD_PROBE_TYPE_EVENT_UPSTREAM, probe, this, nullptr);
  }
  void in_signal(const char* name) {
    const auto handler =
        +[](GstElement*, GstPad*, gpointer self) { static_cast<Scene*>(self)->here(); };
    g_signal_connect(element.get(), name, G_CALLBACK(handler), this);
  }
  void in_sync_handler(GstMessageType type) {
    message = type;
    bus = gst_bus_new();
    const auto handler = [](GstBus*, GstMessage* posted, gpointer self) {
      auto* scene = static_cast<Scene*>(self);
      if (GST_MESSAGE_TYPE(posted) == scene->message) scene->here();
      gst_message_unref(posted);
      return GST_BUS_DROP;
    };
    gst_bus_set_sync_handler(bus, handler, this, nullptr);
    gst_element_set_bus(element.get(), bus);
  }
  ~Scene() {
    element.on_delivery(nullptr);
    // An asynchronous call may keep the element for a moment, with its pads.
    g_signal_handlers_disconnect_by_data(element.get(), this);
    gst_element_set_state(element.get(), GST_STATE_NULL);
    gst_element_set_bus(element.get(), nullptr);
    if (bus != nullptr) gst_object_unref(bus);
  }

  Element element{DMX_TYPE_PVR_PLAYBACK};
  Upstream upstream{element.get()};
  Decoder video;
  Decoder audio;
  Decoder description;
  gpointer filter = nullptr;
  gpointer other = nullptr;
  GstBus* bus = nullptr;
  GstMessageType message = GST_MESSAGE_UNKNOWN;
  std::function<void()> action;
  std::atomic<bool> entered{false};
  std::atomic<bool> done{false};
};

std::string one_section() {
  stream::Multiplex mux;
  return stream::text(mux.sections(kSections, {stream::section(0x42, 1, 60)}));
}

/// A place, how to get there in a playing element, and whether the way down is
/// open from there.
using SceneStep = std::function<void(Scene&)>;
struct Place {
  const char* name;
  SceneStep prepare;  // before PLAYING
  SceneStep reach;    // in PLAYING
  bool may_go_down;
};

void nothing(Scene&) {}

template <GstMessageType kType>
void in_sync_handler(Scene& scene) {
  scene.in_sync_handler(kType);
}

template <typename Value>
SceneStep write(const char* property, Value value) {
  return [=](Scene& scene) { scene.element.set(property, value); };
}

/// A decoder's custom event, from a thread of its own.
SceneStep send(Decoder Scene::*decoder, const char* structure) {
  return
      [=](Scene& scene) { std::thread([&] { (scene.*decoder).send_custom(structure); }).join(); };
}

/// In a decoder's event function, on the event of that name that `cause` leads to.
Place in_event(const char* name, Decoder Scene::*decoder, const SceneStep& cause,
               bool may_go_down = true) {
  const auto reach = [=](Scene& scene) {
    scene.in_events_of(scene.*decoder, name);
    cause(scene);
  };
  return {name, nothing, reach, may_go_down};
}

const Place kPlaces[] = {
    {"section-upload", [](Scene& s) { s.in_deliveries(); },
     [](Scene& s) { s.element.feed(one_section()); }, false},
    {"pes-upload", [](Scene& s) { s.in_deliveries(); },
     [](Scene& s) {
       stream::Multiplex mux;
       s.element.feed(stream::text(mux.unit(kSubtitles, stream::pes(0xBD, 100))));
     },
     false},
    {"temi-data", [](Scene& s) { s.in_deliveries(); },
     [](Scene& s) {
       gst_vantrel_temi_initiate(s.element.state());
       s.element.set("enable", TRUE);
       stream::Multiplex mux;
       s.element.feed(
           stream::text(mux.packet(9, {}, {.af_descriptors = stream::timeline(1, 2, 3)})));
     },
     false},
    {"pad-added", nothing,
     [](Scene& s) {
       s.in_signal("pad-added");
       s.element.set("ttx-pid", 0x52);
     },
     false},
    {"pad-removed", nothing,
     [](Scene& s) {
       s.in_signal("pad-removed");
       s.element.set("sub-pid", -1);
     },
     false},
    {"codec-info", [](Scene& s) { s.in_events_of(s.description, "audio-codec-sub"); }, nothing,
     false},
    in_event("video-decode-info", &Scene::video, write("video-codec-type", 1)),
    in_event("flush-video", &Scene::video, write("video-codec-type", 1)),
    in_event("flush-audio", &Scene::audio, write("video-codec-type", 1)),
    in_event("audio-lock", &Scene::video, send(&Scene::audio, "x, audio-lock=(uint)1;")),
    in_event("dmx-pts", &Scene::audio, send(&Scene::video, "x, dmx-pts=(uint)1;")),
    in_event("hfr2pid-mode", &Scene::video, write("vpid-sub", 4)),
    in_event("hfr2pid-start", &Scene::video, write("videodec-device-sub", "vdec1")),
    in_event(
        "hfr2pid-stop", &Scene::video,
        [](Scene& s) {
          s.element.set("vpid-sub", 4U);
          s.element.set("vpid-sub-stop", TRUE);
        },
        false),
    {"dvr-start, sent upstream", nothing,
     [](Scene& s) {
       s.in_upstream_events();
       send(&Scene::audio, "x, dvr-stop=(boolean)true;")(s);
     },
     true},
    {"seek, sent upstream", nothing,
     [](Scene& s) {
       s.in_upstream_events();
       std::thread([&] { s.audio.seek(); }).join();
     },
     true},
    {"sync handler of state-changed", nothing,
     [](Scene& s) {
       s.in_sync_handler(GST_MESSAGE_STATE_CHANGED);
       s.element.go(GST_STATE_PAUSED);
     },
     true},
    {"sync handler of EOS", nothing,
     [](Scene& s) {
       for (Decoder* decoder : {&s.video, &s.audio, &s.description}) decoder->unlink();
       s.in_sync_handler(GST_MESSAGE_EOS);
       s.upstream.start_of_stream();
       s.upstream.send(gst_event_new_eos());
     },
     true},
};

bool is_in(Scene& scene, GstState state) {
  return eventually([&] { return GST_STATE(scene.element.get()) == state; });
}

/// A call, and what is true once its place has been left.
struct Call {
  const char* name;
  void (*make)(Scene&, const Place&);
  void (*afterwards)(Scene&, const Place&);
};

void no_more(Scene&, const Place&) {}

const Call kCalls[] = {
    {"add-filter",
     [](Scene& s, const Place&) {
       const int nodes = open_nodes(0);
       gpointer added = s.element.add(kSections + 1, 0x43);
       EXPECT_NE(added, nullptr);
       EXPECT_EQ(open_nodes(0), nodes + 1);
       s.element.remove(added);
       EXPECT_EQ(open_nodes(0), nodes);
     },
     no_more},
    {"remove-filter, its own and another",
     [](Scene& s, const Place&) {
       const int nodes = open_nodes(0);
       s.element.remove(s.other);
       s.element.remove(s.filter);
       EXPECT_EQ(open_nodes(0), nodes - 2);
     },
     no_more},
    {"PIDs and read-back",
     [](Scene& s, const Place&) {
       s.element.set("apid", 12U);
       s.element.set("vpid", 11U);
       s.element.set("ttx-pid", 13);
       EXPECT_NE(s.element.get_string("pids").find("video:11/audio:12/"), std::string::npos);
       s.element.set("ttx-pid", -1);
     },
     no_more},
    {"events upstream, of this thread and of another",
     [](Scene& s, const Place&) {
       const auto send = [&s] {
         s.video.send_custom("x, dmx-stop=(boolean)true;");
         s.video.send_custom("x, dmx-stop=(boolean)false;");
         s.video.seek();
       };
       send();
       std::thread(send).join();
     },
     no_more},
    {"link and unlink",
     [](Scene& s, const Place&) {
       s.audio.unlink();
       Decoder another;
       EXPECT_TRUE(another.link(s.element.get(), "audio-src"));
       another.unlink();
       EXPECT_TRUE(s.audio.link(s.element.get(), "audio-src"));
     },
     no_more},
    {"state change up",
     [](Scene& s, const Place&) {
       EXPECT_NE(gst_element_set_state(s.element.get(), GST_STATE_PLAYING),
                 GST_STATE_CHANGE_FAILURE);
     },
     [](Scene& s, const Place&) { EXPECT_TRUE(is_in(s, GST_STATE_PLAYING)); }},
    {"state change down",
     [](Scene& s, const Place& place) {
       EXPECT_EQ(gst_element_set_state(s.element.get(), GST_STATE_READY),
                 place.may_go_down ? GST_STATE_CHANGE_SUCCESS : GST_STATE_CHANGE_FAILURE);
     },
     no_more},
    {"gst_element_call_async",
     [](Scene& s, const Place&) {
       const auto down = [](GstElement* self, gpointer) {
         gst_element_set_state(self, GST_STATE_READY);
       };
       gst_element_call_async(s.element.get(), down, nullptr, nullptr);
     },
     [](Scene& s, const Place&) { EXPECT_TRUE(is_in(s, GST_STATE_READY)); }},
    {"TEMI",
     [](Scene& s, const Place&) {
       EXPECT_TRUE(gst_vantrel_temi_initiate(s.element.state()));
       EXPECT_GT(s.element.state()->temi_fd, 0);
       s.element.set("enable", TRUE);
       s.element.set("enable", FALSE);
       EXPECT_FALSE(s.element.state()->temi_enable.load());
     },
     no_more},
};

class Reentrancy : public ::testing::TestWithParam<Place> {};

TEST_P(Reentrancy, EveryCallReturnsAndDoesWhatItDoesElsewhere) {
  const Place& place = GetParam();
  for (const Call& call : kCalls) {
    SCOPED_TRACE(call.name);
    within_limit([&] {
      {
        Scene scene;
        scene.action = [&] { call.make(scene, place); };
        place.prepare(scene);
        scene.element.go(GST_STATE_PLAYING);
        place.reach(scene);
        EXPECT_TRUE(eventually([&] { return scene.done.load(); })) << "not reached";
        call.afterwards(scene, place);
      }
      EXPECT_EQ(open_nodes(0), 0);
    });
  }
}

INSTANTIATE_TEST_SUITE_P(Places, Reentrancy, ::testing::ValuesIn(kPlaces), [](const auto& place) {
  std::string name = place.param.name;
  std::replace_if(
      name.begin(), name.end(), [](char c) { return !g_ascii_isalnum(c); }, '_');
  return name;
});

/// What was read last is handed over when the end of the stream has passed, also
/// where the handler waits for threads that ask for something.
TEST(Handler, HasLeftWhenEndOfStreamHasPassed) {
  for (const Place& place : std::span(kPlaces).first(3)) {
    SCOPED_TRACE(place.name);
    within_limit([&] {
      Scene scene;
      scene.action = [&] {
        std::thread([&] {
          scene.element.set("apid", 12U);
          scene.element.remove(scene.element.add(kSections + 1, 0x43));
        }).join();
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
      };
      place.prepare(scene);
      scene.element.go(GST_STATE_PLAYING);
      scene.upstream.start_of_stream();
      place.reach(scene);
      scene.upstream.send(gst_event_new_eos());
      EXPECT_TRUE(scene.done.load());
    });
  }
}

bool is_streaming(GstPad* pad) {
  if (!GST_PAD_STREAM_TRYLOCK(pad)) return true;
  GST_PAD_STREAM_UNLOCK(pad);
  return false;
}

/// EOS waits for the handler, and the way down for who brings EOS.
TEST(Handler, DoesNotHoldTheWayDownThroughAnEndOfStream) {
  within_limit([] {
    Element element;
    Upstream upstream(element.get());
    element.add(kSections, 0x42);
    std::promise<void> entered;
    element.on_delivery([&](const Delivery&) {
      entered.set_value();
      EXPECT_TRUE(eventually([&] { return element.state()->initiated == 0; }));
    });
    element.go(GST_STATE_PLAYING);
    upstream.start_of_stream();
    element.feed(one_section());
    entered.get_future().wait();
    auto end = std::async(std::launch::async, [&] { upstream.send(gst_event_new_eos()); });
    EXPECT_TRUE(eventually([&] { return is_streaming(element.state()->sinkpad); }));
    element.go(GST_STATE_READY);
  });
}

TEST(Handler, MayEndALiveStream) {
  within_limit([] {
    Element element(DMX_TYPE_LIVE);
    Upstream upstream(element.get());
    element.add(kSections, 0x42);
    element.on_delivery([&](const Delivery&) { upstream.send(gst_event_new_eos()); });
    element.go(GST_STATE_PLAYING);
    upstream.start_of_stream();
    element.feed(one_section());
    EXPECT_TRUE(eventually([&] { return GST_PAD_IS_EOS(element.state()->sinkpad); }));
  });
}

/// The state lock is held by who joins the handler's thread.
TEST(Handler, MayAskForAStateWhileAnotherThreadTakesTheElementDown) {
  for (const GstState wanted : {GST_STATE_READY, GST_STATE_PLAYING})
    within_limit([wanted] {
      Element element;
      element.add(kSections, 0x42);
      std::promise<void> entered;
      GstStateChangeReturn answer = GST_STATE_CHANGE_SUCCESS;
      element.on_delivery([&](const Delivery&) {
        entered.set_value();
        EXPECT_TRUE(eventually([&] { return element.state()->initiated == 0; }));
        answer = gst_element_set_state(element.get(), wanted);
      });
      element.go(GST_STATE_PLAYING);
      element.feed(one_section());
      entered.get_future().wait();
      element.go(GST_STATE_READY);
      EXPECT_EQ(answer, GST_STATE_CHANGE_FAILURE);
    });
}

/// The handler waits for the change of streams that removes its filter.
TEST(Handler, MayWriteAPidWhileAPadHandlerRemovesItsFilter) {
  within_limit([] {
    Element element;
    gpointer filter = element.add(kSections, 0x42);
    std::promise<void> entered;
    std::promise<void> write;
    element.on_delivery([&](const Delivery&) {
      entered.set_value();
      write.get_future().wait();
      element.set("apid", 9U);
    });
    struct Removal {
      Element* element;
      gpointer filter;
      std::promise<void>* write;
    } removal{&element, filter, &write};
    const auto handler = +[](GstElement*, GstPad* pad, gpointer data) {
      if (!g_str_has_prefix(GST_PAD_NAME(pad), "teletext")) return;
      auto* what = static_cast<Removal*>(data);
      what->write->set_value();
      what->element->remove(what->filter);
    };
    g_signal_connect(element.get(), "pad-added", G_CALLBACK(handler), &removal);
    element.go(GST_STATE_PLAYING);
    element.feed(one_section());
    entered.get_future().wait();
    element.set("ttx-pid", 0x52);
    EXPECT_TRUE(eventually(
        [&] { return element.get_string("pids").find("audio:9") != std::string::npos; }));
  });
}

}  // namespace
}  // namespace vantrel::testing
