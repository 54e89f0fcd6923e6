// SPDX-License-Identifier: LGPL-2.1-or-later
//
// Watching a service through the receiver's decoder ports: how well sound and
// picture keep together, how soon the first picture is there, and what it costs
// beside the framework's own demultiplexer. Makes its streams, with a flash and a
// beep each second, and prints one JSON object; times in milliseconds.
//
//     watch [SECONDS [FOLDER]]     60 seconds, streams in /tmp
#include <gst/gst.h>
#include <sys/resource.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace {

constexpr int kRate = 25;
constexpr int kFlash = 2;  // pictures
constexpr guint8 kWhite = 235;
constexpr guint8 kBright = 200;
constexpr int kSampleRate = 48000;
constexpr int kLoud = 3000;
constexpr double kSilence = 200;  // ms before a beep

struct Unref {
  void operator()(gpointer object) const { gst_object_unref(object); }
};
using Element = std::unique_ptr<GstElement, Unref>;

Element launch(const std::string& description) {
  g_autoptr(GError) error = nullptr;
  Element pipeline(gst_parse_launch(description.c_str(), &error));
  if (pipeline == nullptr || error != nullptr)
    g_error("%s: %s", description.c_str(), error->message);
  return pipeline;
}

Element child(const Element& pipeline, const char* name) {
  return Element(gst_bin_get_by_name(GST_BIN(pipeline.get()), name));
}

/// Waits for the end of the stream, or so many seconds (0: no limit).
void wait_for_end(const Element& pipeline, int seconds) {
  g_autoptr(GstBus) bus = gst_element_get_bus(pipeline.get());
  const auto types = static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR);
  const GstClockTime limit =
      seconds > 0 ? static_cast<GstClockTime>(seconds) * GST_SECOND : GST_CLOCK_TIME_NONE;
  g_autoptr(GstMessage) message = gst_bus_timed_pop_filtered(bus, limit, types);
  if (message == nullptr || GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS) return;
  g_autoptr(GError) error = nullptr;
  gst_message_parse_error(message, &error, nullptr);
  g_error("%s: %s", GST_MESSAGE_SRC_NAME(message), error->message);
}

double now() { return static_cast<double>(g_get_monotonic_time()) / 1000; }

// --- The streams -------------------------------------------------------------

/// Makes the first pictures of each second white.
GstPadProbeReturn paint(GstPad*, GstPadProbeInfo* info, gpointer) {
  GstBuffer* buffer = gst_buffer_make_writable(GST_PAD_PROBE_INFO_BUFFER(info));
  GST_PAD_PROBE_INFO_DATA(info) = buffer;
  const guint64 picture = gst_util_uint64_scale_round(GST_BUFFER_PTS(buffer), kRate, GST_SECOND);
  if (picture % kRate < kFlash)
    gst_buffer_memset(buffer, 0, kWhite, gst_buffer_get_size(buffer) * 2 / 3);
  return GST_PAD_PROBE_OK;
}

struct Picture {
  const char* name;
  int width;
  int height;
  const char* pattern;
  int kbit;
};

constexpr Picture kSmall = {"small", 640, 360, "black", 500};
constexpr Picture kHd = {"hd", 1920, 1080, "zone-plate kx2=20 ky2=20 kt=1", 8000};

std::string make_stream(const Picture& picture, int seconds, const std::string& folder) {
  const std::string path = folder + "/flash-and-beep-" + picture.name + ".ts";
  const std::string size = ",width=" + std::to_string(picture.width) +
                           ",height=" + std::to_string(picture.height) + ",framerate=25/1";
  const Element pipeline = launch(
      "mpegtsmux name=mux prog-map=\"program_map,sink_256=1,sink_257=1,PCR_1=sink_256\" ! "
      "filesink location=" +
      path + " videotestsrc name=video num-buffers=" + std::to_string(seconds * kRate) +
      " pattern=" + picture.pattern + " ! video/x-raw,format=I420" + size +
      " ! x264enc speed-preset=superfast key-int-max=25 bframes=2 bitrate=" +
      std::to_string(picture.kbit) +
      " ! h264parse ! queue ! mux.sink_256 "
      "audiotestsrc wave=ticks freq=1000 sine-periods-per-tick=40 tick-interval=1000000000 "
      "samplesperbuffer=480 num-buffers=" +
      std::to_string(seconds * 100) +
      " ! audio/x-raw,rate=48000,channels=2 ! audioconvert ! avenc_ac3 bitrate=192000 ! ac3parse ! "
      "queue ! mux.sink_257");
  const Element video = child(pipeline, "video");
  GstPad* pad = gst_element_get_static_pad(video.get(), "src");
  gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BUFFER, paint, nullptr, nullptr);
  gst_object_unref(pad);
  gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
  wait_for_end(pipeline, 0);
  gst_element_set_state(pipeline.get(), GST_STATE_NULL);
  return path;
}

// --- Ways to play them -------------------------------------------------------

std::string receiver(const std::string& path, int demux_type) {
  return "filesrc location=" + path + " ! vantrel name=d demux-type=" + std::to_string(demux_type) +
         " pids=video:256:3/audio:257:9/pcr:256:0 videodec-device=vdec0 "
         "d.video-src ! qelvideodec ! %VIDEO% d.audio-src ! qelaudiodec ! %AUDIO%";
}

std::string framework(const std::string& path) {
  return "filesrc location=" + path +
         " ! tsdemux name=d d.video_0_0100 ! queue max-size-time=3000000000 max-size-bytes=0 "
         "max-size-buffers=0 ! %VIDEO% d.audio_0_0101 ! queue max-size-time=3000000000 "
         "max-size-bytes=0 max-size-buffers=0 ! %AUDIO%";
}

std::string with(std::string way, const std::string& video, const std::string& audio) {
  way.replace(way.find("%VIDEO%"), 7, video);
  return way.replace(way.find("%AUDIO%"), 7, audio);
}

// --- What a viewer sees and hears --------------------------------------------

/// When flashes and beeps came, as a sink that follows the clock gives them out.
struct Witness {
  std::vector<double> flashes;  // the video sink's thread
  std::vector<double> beeps;    // the audio sink's thread
  bool bright = false;
  double last_loud = -1e9;
};

void on_picture(GstElement*, GstBuffer* buffer, GstPad*, gpointer data) {
  auto* witness = static_cast<Witness*>(data);
  guint8 luma = 0;
  gst_buffer_extract(buffer, gst_buffer_get_size(buffer) / 3, &luma, 1);
  const bool bright = luma > kBright;
  if (bright && !witness->bright) witness->flashes.push_back(now());
  witness->bright = bright;
}

void on_sound(GstElement*, GstBuffer* buffer, GstPad*, gpointer data) {
  auto* witness = static_cast<Witness*>(data);
  const double start = now();
  GstMapInfo map;
  gst_buffer_map(buffer, &map, GST_MAP_READ);
  const auto* samples = reinterpret_cast<const gint16*>(map.data);
  for (gsize i = 0; i < map.size / sizeof(gint16); ++i) {
    if (std::abs(samples[i]) < kLoud) continue;
    const double at = start + 1000.0 * static_cast<double>(i) / kSampleRate;
    if (at - witness->last_loud > kSilence) witness->beeps.push_back(at);
    witness->last_loud = at;
  }
  gst_buffer_unmap(buffer, &map);
}

void listen(const Element& pipeline, const char* sink, GCallback handler, Witness& witness) {
  g_signal_connect(child(pipeline, sink).get(), "handoff", handler, &witness);
}

/// How much later than its flash each beep is; a pair belongs together within
/// half a second.
std::vector<double> distances(const Witness& witness) {
  std::vector<double> all;
  for (const double flash : witness.flashes)
    for (const double beep : witness.beeps)
      if (std::abs(beep - flash) < 500) all.push_back(beep - flash);
  return all;
}

void print_sync(const char* name, const std::string& way, int seconds) {
  const Element pipeline =
      launch(with(way, "h264parse ! avdec_h264 ! fakesink name=v sync=true signal-handoffs=true",
                  "ac3parse ! avdec_ac3 ! audioconvert ! audio/x-raw,format=S16LE,channels=1 ! "
                  "fakesink name=a sync=true signal-handoffs=true"));
  Witness witness;
  listen(pipeline, "v", G_CALLBACK(on_picture), witness);
  listen(pipeline, "a", G_CALLBACK(on_sound), witness);
  gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
  wait_for_end(pipeline, seconds);
  gst_element_set_state(pipeline.get(), GST_STATE_NULL);
  std::vector<double> all = distances(witness);
  if (all.empty()) g_error("%s: no flash and beep together", name);
  std::sort(all.begin(), all.end());
  std::printf("  \"%s\": {\"pairs\": %zu, \"min\": %.1f, \"median\": %.1f, \"max\": %.1f},\n", name,
              all.size(), all.front(), all[all.size() / 2], all.back());
}

// --- How soon, and at what cost ----------------------------------------------

GstPadProbeReturn note_first(GstPad*, GstPadProbeInfo*, gpointer at) {
  *static_cast<double*>(at) = now();
  return GST_PAD_PROBE_REMOVE;
}

void print_start(const char* name, const std::string& way) {
  std::vector<double> samples;
  for (int i = 0; i < 10; ++i) {
    const Element pipeline =
        launch(with(way, "h264parse ! avdec_h264 name=dec ! fakesink sync=true",
                    "ac3parse ! avdec_ac3 ! fakesink sync=true"));
    double first = 0;
    GstPad* pad = gst_element_get_static_pad(child(pipeline, "dec").get(), "src");
    gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BUFFER, note_first, &first, nullptr);
    gst_object_unref(pad);
    const double begin = now();
    gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
    wait_for_end(pipeline, 3);
    gst_element_set_state(pipeline.get(), GST_STATE_NULL);
    if (first == 0) g_error("%s: no picture in three seconds", name);
    samples.push_back(first - begin);
  }
  std::sort(samples.begin(), samples.end());
  std::printf("  \"%s\": {\"median\": %.0f, \"max\": %.0f},\n", name, samples[samples.size() / 2],
              samples.back());
}

double cpu_seconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// Processor time of a whole stream, as fast as it goes; the best of five.
double cost(const std::string& way, const char* video, const char* audio) {
  double best = 1e9;
  for (int i = 0; i < 5; ++i) {
    const Element pipeline = launch(with(way, video, audio));
    const double begin = cpu_seconds();
    gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
    wait_for_end(pipeline, 0);
    gst_element_set_state(pipeline.get(), GST_STATE_NULL);
    best = std::min(best, cpu_seconds() - begin);
  }
  return best;
}

void print_costs(const std::string& hd) {
  const char* video = "h264parse ! avdec_h264 ! fakesink sync=false";
  const char* audio = "ac3parse ! avdec_ac3 ! fakesink sync=false";
  const double ours = cost(receiver(hd, 1), video, audio);
  const double theirs = cost(framework(hd), video, audio);
  const char* nothing = "fakesink sync=false";
  const double bare_ours = cost(receiver(hd, 1), nothing, nothing);
  const double bare_theirs = cost(framework(hd), nothing, nothing);
  std::printf(
      "  \"cpu\": {\"watch\": %.3f, \"watch_tsdemux\": %.3f, \"demux\": %.4f, "
      "\"demux_tsdemux\": %.4f}\n",
      ours, theirs, bare_ours, bare_theirs);
}

}  // namespace

int main(int argc, char** argv) {
  gst_init(&argc, &argv);
  const int seconds = argc > 1 ? std::atoi(argv[1]) : 60;
  const std::string folder = argc > 2 ? argv[2] : "/tmp";
  const std::string small = make_stream(kSmall, seconds, folder);
  const std::string hd = make_stream(kHd, 10, folder);
  std::printf("{\n");
  print_sync("sync_file", receiver(small, 1), 0);
  print_sync("sync_live", receiver(small, 0), 0);
  print_sync("sync_tsdemux", framework(small), 20);
  print_start("start_file", receiver(hd, 1));
  print_start("start_live", receiver(hd, 0));
  print_start("start_tsdemux", framework(hd));
  print_costs(hd);
  std::printf("}\n");
  return 0;
}
