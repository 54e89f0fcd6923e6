// SPDX-License-Identifier: LGPL-2.1-or-later
//
// A programme to its decoders, beside tsdemux; a multiplex to a recording, beside
// libavformat. All are fed the same stream in blocks of 64 KiB, from memory or
// from a file in the page cache, and what they give is taken and dropped.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <gst/gst.h>
#include <poll.h>
#include <pthread.h>
#include <qel/device.h>
#include <qel/receiver.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>

#ifdef HAVE_AVFORMAT
extern "C" {
#include <libavformat/avformat.h>
}
#endif

#include "benchmarks/streams.h"
#include "common/unique_fd.h"

namespace {

using stream::Bytes;
using namespace streams;

constexpr std::size_t kBlock = 64 * 1024;

template <typename Feed>
void feed_blocks(const Bytes& bytes, Feed&& feed) {
  for (std::size_t at = 0; at < bytes.size(); at += kBlock)
    feed(bytes.data() + at, std::min(kBlock, bytes.size() - at));
}

void report(benchmark::State& state, const Bytes& bytes) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes.size()));
}

// --- A programme to its decoders ---------------------------------------------

/// What takes the bytes of the decoder ports, in a thread of its own.
class Ports {
 public:
  Ports() {
    for (std::size_t i = 0; i < fds_.size(); i++) {
      fds_[i] = qel_device_open(kNames[i], O_RDONLY | O_NONBLOCK);
      polled_[i] = {.fd = fds_[i], .events = POLLIN, .revents = 0};
    }
    thread_ = std::thread([this] { run(); });
  }
  ~Ports() {
    for (std::size_t i = 0; i < fds_.size(); i++) qel_device_close(kNames[i], fds_[i]);
  }
  Ports(const Ports&) = delete;
  Ports& operator=(const Ports&) = delete;

  /// Once everything was fed and its end: the number of bytes that came.
  std::size_t finish() {
    thread_.join();
    return bytes_;
  }

 private:
  static constexpr const char* kNames[] = {"vdec0", "adec0", "adec1"};

  void run() {
    pthread_setname_np(pthread_self(), "ports");
    for (std::size_t ended = 0; ended < polled_.size();) {
      poll(polled_.data(), polled_.size(), -1);
      for (pollfd& port : polled_) {
        if (port.revents == 0 || !read_to_end(port.fd)) continue;
        port.fd = -1;
        ended++;
      }
    }
  }
  /// Reads what there is; true at the end of the stream.
  bool read_to_end(int fd) {
    ssize_t count = 0;
    while ((count = qel_device_read(fd, buffer_.data(), buffer_.size())) > 0)
      bytes_ += static_cast<std::size_t>(count);
    return count == 0;
  }

  std::array<int, 3> fds_{};
  std::array<pollfd, 3> polled_{};
  std::vector<std::uint8_t> buffer_ = std::vector<std::uint8_t>(kBlock);
  std::size_t bytes_ = 0;  // the thread's until it is joined
  std::thread thread_;
};

GstElement* make_vantrel() {
  GstElement* element = gst_element_factory_make("vantrel", nullptr);
  if (element == nullptr) g_error("the element is not to be found: is GST_PLUGIN_PATH set?");
  g_object_set(element, "demux-type", 1U, "pids", "video:256:3/audio:257:6/pcr:256:0", "ad-pid",
               kFirstPid + 2, nullptr);
  return element;
}

std::size_t g_taken = 0;

GstFlowReturn drop_buffer(GstPad*, GstObject*, GstBuffer* buffer) {
  g_taken += gst_buffer_get_size(buffer);
  gst_buffer_unref(buffer);
  return GST_FLOW_OK;
}

std::atomic<bool> g_ended{false};

void note_end(GstEvent* event) {
  if (GST_EVENT_TYPE(event) != GST_EVENT_EOS) return;
  g_ended = true;
  g_ended.notify_one();
}

gboolean drop_event(GstPad*, GstObject*, GstEvent* event) {
  note_end(event);
  gst_event_unref(event);
  return TRUE;
}

/// A pad that drops what it gets behind each pad of tsdemux's.
void link_drain(GstElement*, GstPad* pad, gpointer) {
  GstPad* drain = gst_pad_new(nullptr, GST_PAD_SINK);
  gst_pad_set_chain_function(drain, drop_buffer);
  gst_pad_set_event_function(drain, drop_event);
  gst_pad_set_active(drain, TRUE);
  gst_pad_link(pad, drain);
  g_object_set_data_full(G_OBJECT(pad), "drain", gst_object_ref_sink(drain), gst_object_unref);
}

GstElement* make_tsdemux() {
  GstElement* element = gst_element_factory_make("tsdemux", nullptr);
  if (element == nullptr) g_error("tsdemux is not to be found");
  g_signal_connect(element, "pad-added", G_CALLBACK(link_drain), nullptr);
  return element;
}

/// To PLAYING; playback programs video when its decoder is named.
void start(GstElement* top, GstElement* element) {
  gst_element_set_state(top, GST_STATE_PAUSED);
  if (g_object_class_find_property(G_OBJECT_GET_CLASS(element), "videodec-device") != nullptr)
    g_object_set(element, "videodec-device", "vdec0", nullptr);
  gst_element_set_state(top, GST_STATE_PLAYING);
}

/// Pushes the programme into an element that is PLAYING by itself.
void play_from_memory(GstElement* element) {
  gst_object_ref_sink(element);
  GstPad* source = gst_pad_new("src", GST_PAD_SRC);
  gst_pad_set_active(source, TRUE);
  GstPad* sink = gst_element_get_static_pad(element, "sink");
  gst_pad_link(source, sink);
  start(element, element);
  gst_pad_push_event(source, gst_event_new_stream_start("bench"));
  gst_pad_push_event(source, gst_event_new_caps(gst_caps_new_simple(
                                 "video/mpegts", "systemstream", G_TYPE_BOOLEAN, TRUE, nullptr)));
  GstSegment segment;
  gst_segment_init(&segment, GST_FORMAT_BYTES);
  gst_pad_push_event(source, gst_event_new_segment(&segment));
  feed_blocks(programme(), [&](const std::uint8_t* data, std::size_t size) {
    gst_pad_push(source, gst_buffer_new_wrapped_full(GST_MEMORY_FLAG_READONLY,
                                                     const_cast<std::uint8_t*>(data), size, 0, size,
                                                     nullptr, nullptr));
  });
  gst_pad_push_event(source, gst_event_new_eos());
  gst_object_unref(sink);
  gst_object_unref(source);
}

/// The programme in a file, which is gone when the process ends.
class ProgrammeFile {
 public:
  ProgrammeFile() {
    const vantrel::UniqueFD file(g_file_open_tmp("programme-XXXXXX", &name_, nullptr));
    std::ofstream(name_, std::ios::binary)
        .write(reinterpret_cast<const char*>(programme().data()),
               static_cast<std::streamsize>(programme().size()));
  }
  ~ProgrammeFile() {
    std::remove(name_);
    g_free(name_);
  }
  ProgrammeFile(const ProgrammeFile&) = delete;
  ProgrammeFile& operator=(const ProgrammeFile&) = delete;

  [[nodiscard]] const char* name() const { return name_; }

 private:
  gchar* name_ = nullptr;
};

const char* programme_file() {
  static const ProgrammeFile file;
  return file.name();
}

GstPadProbeReturn see_event(GstPad*, GstPadProbeInfo* info, gpointer) {
  note_end(gst_pad_probe_info_get_event(info));
  return GST_PAD_PROBE_OK;
}

/// filesrc in front of the element, until the end has come.
void play_from_file(GstElement* element) {
  g_ended = false;
  GstElement* pipeline = gst_pipeline_new(nullptr);
  GstElement* file = gst_element_factory_make("filesrc", nullptr);
  g_object_set(file, "location", programme_file(), "blocksize", guint{kBlock}, nullptr);
  gst_bin_add_many(GST_BIN(pipeline), file, element, nullptr);
  gst_element_link(file, element);
  GstPad* sink = gst_element_get_static_pad(element, "sink");
  gst_pad_add_probe(sink, GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM, see_event, nullptr, nullptr);
  gst_object_unref(sink);
  start(pipeline, element);
  // tsdemux reads the file itself; its end is seen behind it.
  g_ended.wait(false);
  // Ends once the push of EOS has returned: with the readers' work done.
  gst_element_set_state(file, GST_STATE_NULL);
  gst_object_ref(element);
  gst_element_set_state(pipeline, GST_STATE_NULL);
  gst_object_unref(pipeline);
}

void stop(GstElement* element) {
  gst_element_set_state(element, GST_STATE_NULL);
  gst_object_unref(element);
}

template <void play(GstElement*)>
void BM_PlayVantrel(benchmark::State& state) {
  for (auto _ : state) {
    GstElement* element = make_vantrel();
    Ports ports;
    play(element);
    const std::size_t taken = ports.finish();
    stop(element);
    if (taken < programme().size() * 9 / 10) state.SkipWithError("bytes are missing");
  }
  report(state, programme());
}

template <void play(GstElement*)>
void BM_PlayTsdemux(benchmark::State& state) {
  for (auto _ : state) {
    g_taken = 0;
    GstElement* element = make_tsdemux();
    play(element);
    stop(element);
    if (g_taken < programme().size() * 9 / 10) state.SkipWithError("bytes are missing");
  }
  report(state, programme());
}

// --- A multiplex to a recording ----------------------------------------------

/// Entries of "pids" for the PIDs of the first services.
std::string pids_of(unsigned services) {
  std::string pids;
  for (unsigned service = 0; service < services; service++)
    for (unsigned i = 0; i < kPidsOfService; i++)
      pids += (i == 0 ? "video:" : "audio:") + std::to_string(pid_of(service, i)) +
              (i == 0 ? ":3/" : ":6/");
  return pids;
}

std::size_t packets_of(const Bytes& bytes, unsigned services) {
  std::size_t count = 0;
  for (std::size_t at = 0; at < bytes.size(); at += stream::kPacketSize) {
    const unsigned pid = pid_in(bytes.data() + at);
    count += pid >= kFirstPid && pid < pid_of(services, 0) ? 1 : 0;
  }
  return count;
}

std::size_t read_all(int fd, std::vector<std::uint8_t>& buffer) {
  std::size_t sum = 0;
  for (ssize_t count = 0; (count = qel_device_read(fd, buffer.data(), buffer.size())) > 0;)
    sum += static_cast<std::size_t>(count);
  return sum;
}

/// Records range(0) PIDs; feeds and reads in one thread, as libavformat does.
template <const Bytes& get_stream()>
void BM_Record(benchmark::State& state) {
  const Bytes& bytes = get_stream();
  const auto services = static_cast<unsigned>(state.range(0)) / kPidsOfService;
  const std::size_t expected = packets_of(bytes, services) * stream::kPacketSize;
  GstElement* element = gst_element_factory_make("vantrel", nullptr);
  gst_object_ref_sink(element);
  g_object_set(element, "demux-type", 2U, "pids", pids_of(services).c_str(), nullptr);
  gst_element_set_state(element, GST_STATE_PLAYING);
  const int fd = qel_device_open("qel_dvr0", O_RDONLY | O_NONBLOCK);
  std::vector<std::uint8_t> buffer(kBlock);
  for (auto _ : state) {
    std::size_t taken = 0;
    qel_receiver_set_flushing(0, DMX_IN_FRONTEND, 1);
    qel_receiver_set_flushing(0, DMX_IN_FRONTEND, 0);
    feed_blocks(bytes, [&](const std::uint8_t* data, std::size_t size) {
      qel_receiver_feed(0, DMX_IN_FRONTEND, data, size);
      taken += read_all(fd, buffer);
    });
    if (taken != expected) state.SkipWithError("packets are missing");
  }
  report(state, bytes);
  stop(element);
  qel_device_close("qel_dvr0", fd);
}

/// The least that a recording costs: every byte into a ring and out of it.
void BM_CopyTwice(benchmark::State& state) {
  constexpr std::size_t kRing = 10 * 188 * std::size_t{1024};  // as large as the record node's
  std::vector<std::uint8_t> ring(kRing + kBlock), buffer(kBlock);
  for (auto _ : state) {
    std::size_t at = 0;
    feed_blocks(multiplex(), [&](const std::uint8_t* data, std::size_t size) {
      std::memcpy(ring.data() + at, data, size);
      benchmark::ClobberMemory();
      std::memcpy(buffer.data(), ring.data() + at, size);
      benchmark::ClobberMemory();
      at = (at + size) % kRing;
    });
  }
  report(state, multiplex());
}

#ifdef HAVE_AVFORMAT

struct Position {
  std::size_t at = 0;
};

int read_some(void* opaque, std::uint8_t* buffer, int size) {
  auto* position = static_cast<Position*>(opaque);
  const std::size_t count =
      std::min(static_cast<std::size_t>(size), multiplex().size() - position->at);
  if (count == 0) return AVERROR_EOF;
  std::copy_n(multiplex().begin() + static_cast<std::ptrdiff_t>(position->at), count, buffer);
  position->at += count;
  return static_cast<int>(count);
}

/// Every packet of every stream, not parsed.
void BM_RecordAvformat(benchmark::State& state) {
  for (auto _ : state) {
    Position position;
    AVFormatContext* context = avformat_alloc_context();
    auto* buffer = static_cast<std::uint8_t*>(av_malloc(kBlock));
    context->pb = avio_alloc_context(buffer, kBlock, 0, &position, read_some, nullptr, nullptr);
    context->flags |= AVFMT_FLAG_NOPARSE | AVFMT_FLAG_NOFILLIN;
    if (avformat_open_input(&context, nullptr, av_find_input_format("mpegts"), nullptr) < 0) {
      state.SkipWithError("libavformat does not open the stream");
      return;
    }
    std::size_t taken = 0;
    AVPacket* packet = av_packet_alloc();
    for (; av_read_frame(context, packet) >= 0; av_packet_unref(packet))
      taken += static_cast<std::size_t>(packet->size);
    av_packet_free(&packet);
    av_freep(&context->pb->buffer);
    avio_context_free(&context->pb);
    avformat_close_input(&context);
    if (taken < multiplex().size() * 8 / 10) state.SkipWithError("bytes are missing");
  }
  report(state, multiplex());
}
BENCHMARK(BM_RecordAvformat)->UseRealTime()->Unit(benchmark::kMillisecond);

#endif

BENCHMARK(BM_PlayVantrel<play_from_memory>)
    ->Name("PlayMemory/vantrel")
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PlayTsdemux<play_from_memory>)
    ->Name("PlayMemory/tsdemux")
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PlayVantrel<play_from_file>)
    ->Name("PlayFile/vantrel")
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PlayTsdemux<play_from_file>)
    ->Name("PlayFile/tsdemux")
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CopyTwice)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Record<multiplex>)
    ->Name("Record/multiplex")
    ->Arg(3)
    ->Arg(60)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Record<on_three_pids>)
    ->Name("Record/one")
    ->Arg(3)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  setenv("QEL_PACE", "none", 1);
  gst_init(&argc, &argv);
  benchmark::Initialize(&argc, argv);
  programme_file();
  multiplex();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
