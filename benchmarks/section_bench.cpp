// SPDX-License-Identifier: LGPL-2.1-or-later
//
// Sections of a stream, handed out one by one: by the element through
// "section-upload", and by libdvbpsi. Both are fed the same packets from memory
// in blocks of 64 KiB and both check every CRC.
//
// The stream: 11 PIDs with sections of 90 to 4096 bytes, sizes spread evenly over
// the logarithm, 60 % of the packets; the rest belongs to a PID nobody wants.
#include <benchmark/benchmark.h>
#include <dvbpsi/dvbpsi.h>
#include <dvbpsi/psi.h>
#include <gst/gst.h>
#include <qel/receiver.h>

#include <array>
#include <atomic>
#include <cmath>
#include <random>

#include "tests/support/ts_builder.h"

namespace {

constexpr unsigned kPids = 11;
constexpr unsigned kFirstPid = 0x100;
constexpr unsigned kOtherPid = 0x300;
constexpr std::size_t kBlock = 64 * 1024;
constexpr std::uint8_t kTableId = 0x42;

struct Stream {
  stream::Bytes bytes;
  std::size_t sections = 0;
  std::size_t section_bytes = 0;
};

std::size_t random_size(std::mt19937& random) {
  std::uniform_real_distribution<double> exponent(std::log(90.0), std::log(4096.0));
  return static_cast<std::size_t>(std::exp(exponent(random)));
}

/// One PID's sections, packed.
stream::Bytes carousel(stream::Multiplex& multiplex, unsigned pid, std::mt19937& random,
                       Stream* total) {
  std::vector<stream::Bytes> list;
  for (std::uint16_t i = 0; i < 40; i++) {
    list.push_back(stream::section(kTableId, i, random_size(random)));
    total->section_bytes += list.back().size();
  }
  total->sections += list.size();
  return multiplex.sections(pid, list);
}

/// Packets of all PIDs in turn, and others between them.
Stream make_stream() {
  Stream result;
  std::mt19937 random(1);
  stream::Multiplex multiplex;
  for (int round = 0; round < 16; round++) {
    std::vector<stream::Bytes> carousels;
    for (unsigned i = 0; i < kPids; i++)
      carousels.push_back(carousel(multiplex, kFirstPid + i, random, &result));
    bool any = true;
    for (std::size_t at = 0; any; at += stream::kPacketSize) {
      any = false;
      for (const stream::Bytes& packets : carousels) {
        if (at >= packets.size()) continue;
        any = true;
        result.bytes.insert(result.bytes.end(), packets.begin() + static_cast<long>(at),
                            packets.begin() + static_cast<long>(at + stream::kPacketSize));
        if (random() % 3 != 0)
          stream::operator+=(result.bytes, multiplex.packet(kOtherPid, stream::counting(184)));
      }
    }
  }
  return result;
}

const Stream& the_stream() {
  static const Stream stream = make_stream();
  return stream;
}

template <typename Feed>
void feed_blocks(Feed&& feed) {
  const stream::Bytes& bytes = the_stream().bytes;
  for (std::size_t at = 0; at < bytes.size(); at += kBlock)
    feed(bytes.data() + at, std::min(kBlock, bytes.size() - at));
}

void report(benchmark::State& state) {
  state.SetBytesProcessed(
      static_cast<std::int64_t>(state.iterations() * the_stream().bytes.size()));
  state.counters["sections/s"] = benchmark::Counter(
      static_cast<double>(state.iterations() * the_stream().sections), benchmark::Counter::kIsRate);
}

// libdvbpsi

std::size_t g_gathered = 0;

void gather(dvbpsi_t*, dvbpsi_psi_section_t* section) {
  g_gathered++;
  benchmark::DoNotOptimize(section->p_data[0]);
  dvbpsi_DeletePSISections(section);
}

/// A parser for each PID, found by PID as the receiver finds its filters.
class Dvbpsi {
 public:
  Dvbpsi() {
    for (unsigned i = 0; i < kPids; i++) {
      dvbpsi_t* handle = dvbpsi_new(nullptr, DVBPSI_MSG_NONE);
      handle->p_decoder = static_cast<dvbpsi_decoder_t*>(
          dvbpsi_decoder_new(gather, 4096, true, sizeof(dvbpsi_decoder_t)));
      by_pid_[kFirstPid + i] = handle;
    }
  }
  ~Dvbpsi() {
    for (dvbpsi_t* handle : by_pid_) {
      if (handle == nullptr) continue;
      dvbpsi_decoder_delete(handle->p_decoder);
      handle->p_decoder = nullptr;
      dvbpsi_delete(handle);
    }
  }
  Dvbpsi(const Dvbpsi&) = delete;
  Dvbpsi& operator=(const Dvbpsi&) = delete;

  void feed(const std::uint8_t* data, std::size_t size) {
    carry_.insert(carry_.end(), data, data + size);
    std::size_t at = 0;
    for (; at + stream::kPacketSize <= carry_.size(); at += stream::kPacketSize) {
      std::uint8_t* packet = carry_.data() + at;
      dvbpsi_t* handle = by_pid_[(packet[1] << 8 | packet[2]) & 0x1fff];
      if (handle != nullptr) dvbpsi_packet_push(handle, packet);
    }
    carry_.erase(carry_.begin(), carry_.begin() + static_cast<long>(at));
  }

 private:
  std::array<dvbpsi_t*, 8192> by_pid_{};
  stream::Bytes carry_;
};

void BM_SectionsDvbpsi(benchmark::State& state) {
  for (auto _ : state) {
    Dvbpsi parser;
    g_gathered = 0;
    feed_blocks([&](const std::uint8_t* data, std::size_t size) { parser.feed(data, size); });
    if (g_gathered != the_stream().sections) state.SkipWithError("sections are missing");
  }
  report(state);
}

// The element

std::atomic<std::size_t> g_uploaded{0};

void on_section(GstElement*, guint, guint, gpointer bytes, guint, gpointer, gpointer) {
  benchmark::DoNotOptimize(static_cast<std::uint8_t*>(bytes)[0]);
  g_uploaded.fetch_add(1, std::memory_order_relaxed);
}

/// An element in DVR mode with a filter for each PID and others that match
/// nothing, fed through its sink pad.
class Pipeline {
 public:
  Pipeline(unsigned filters, unsigned buffer_size)
      : element_(gst_element_factory_make("vantrel", nullptr)) {
    gst_object_ref_sink(element_);
    g_object_set(element_, "demux-type", 1U, "dmx-buf-size", buffer_size, nullptr);
    g_signal_connect(element_, "section-upload", G_CALLBACK(on_section), nullptr);
    for (unsigned i = 0; i < filters; i++) add(kFirstPid + i % kPids, kTableId + i / kPids);
    source_ = gst_pad_new("src", GST_PAD_SRC);
    gst_pad_set_active(source_, TRUE);
    g_autoptr(GstPad) sink = gst_element_get_static_pad(element_, "sink");
    gst_pad_link(source_, sink);
    gst_element_set_state(element_, GST_STATE_PLAYING);
    gst_pad_push_event(source_, gst_event_new_stream_start("bench"));
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_BYTES);
    gst_pad_push_event(source_, gst_event_new_segment(&segment));
  }
  ~Pipeline() {
    gst_element_set_state(element_, GST_STATE_NULL);
    gst_object_unref(source_);
    gst_object_unref(element_);
  }
  Pipeline(const Pipeline&) = delete;
  Pipeline& operator=(const Pipeline&) = delete;

  void feed(const std::uint8_t* data, std::size_t size) {
    gst_pad_push(source_, gst_buffer_new_wrapped_full(GST_MEMORY_FLAG_READONLY,
                                                      const_cast<std::uint8_t*>(data), size, 0,
                                                      size, nullptr, nullptr));
  }

 private:
  void add(unsigned pid, unsigned table_id) {
    gpointer handle = nullptr;
    g_signal_emit_by_name(element_, "add-filter", pid, table_id, 0U, nullptr, nullptr, 0U, FALSE,
                          TRUE, nullptr, &handle);
  }

  GstElement* element_;
  GstPad* source_;
};

void BM_SectionsElement(benchmark::State& state) {
  Pipeline pipeline(static_cast<unsigned>(state.range(0)), static_cast<unsigned>(state.range(1)));
  for (auto _ : state) {
    g_uploaded = 0;
    feed_blocks([&](const std::uint8_t* data, std::size_t size) { pipeline.feed(data, size); });
    while (g_uploaded.load(std::memory_order_relaxed) < the_stream().sections) g_thread_yield();
  }
  report(state);
}

BENCHMARK(BM_SectionsDvbpsi)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SectionsElement)
    ->ArgNames({"filters", "dmx-buf-size"})
    ->Args({11, 1 << 20})
    ->Args({96, 1 << 20})
    ->Args({11, 131072})
    ->Args({96, 131072})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  gst_init(&argc, &argv);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
