// SPDX-License-Identifier: LGPL-2.1-or-later
//
// Receivers of one process, each an element and a thread that feeds its demux:
//
//     scaling-worker FIRST COUNT ROUNDS
//
// Says "ready", begins at the first line from standard input, prints one JSON
// object, and ends at the second line. scaling.py runs it.
#include <gst/gst.h>
#include <qel/receiver.h>
#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/ts_builder.h"

namespace {

constexpr unsigned kPids = 11;
constexpr unsigned kFirstPid = 0x100;
constexpr unsigned kOtherPid = 0x300;
constexpr std::size_t kBlock = 64 * 1024;
constexpr std::uint8_t kTableId = 0x42;
constexpr guint kSectionBuffer = 1024 * 1024;

std::atomic<std::uint64_t> g_sections{0};

void on_section(GstElement*, guint, guint, gpointer, guint, gpointer, gpointer) { g_sections++; }

/// About 10 MB; half of its packets belong to a PID that nobody wants.
stream::Bytes make_stream() {
  stream::Multiplex multiplex;
  stream::Bytes bytes;
  std::vector<stream::Bytes> sections;
  for (std::uint16_t i = 0; i < 20; i++)
    sections.push_back(stream::section(kTableId, i, 100 + i * 100));
  for (int round = 0; round < 20; round++)
    for (unsigned pid = kFirstPid; pid < kFirstPid + kPids; pid++) {
      const stream::Bytes packets = multiplex.sections(pid, sections);
      stream::operator+=(bytes, packets);
      for (std::size_t at = 0; at < packets.size(); at += stream::kPacketSize)
        stream::operator+=(bytes, multiplex.packet(kOtherPid, stream::counting(184)));
    }
  return bytes;
}

GstElement* make_receiver(unsigned demux) {
  GstElement* element = gst_element_factory_make("vantrel", nullptr);
  if (element == nullptr) g_error("the element is not to be found: is GST_PLUGIN_PATH set?");
  gst_object_ref_sink(element);
  g_object_set(element, "demux-type", 1U, "demux-id", demux, "dmx-buf-size", kSectionBuffer,
               nullptr);
  g_signal_connect(element, "section-upload", G_CALLBACK(on_section), nullptr);
  for (unsigned pid = kFirstPid; pid < kFirstPid + kPids; pid++) {
    gpointer filter = nullptr;
    g_signal_emit_by_name(element, "add-filter", pid, unsigned{kTableId}, 0U, nullptr, nullptr, 0U,
                          FALSE, TRUE, nullptr, &filter);
  }
  gst_element_set_state(element, GST_STATE_PLAYING);
  return element;
}

void feed(unsigned demux, const stream::Bytes& bytes, unsigned rounds) {
  for (unsigned round = 0; round < rounds; round++)
    for (std::size_t at = 0; at < bytes.size(); at += kBlock)
      qel_receiver_feed(demux, DMX_IN_DVR, bytes.data() + at, std::min(kBlock, bytes.size() - at));
  qel_receiver_end(demux, DMX_IN_DVR);
}

double cpu_seconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// Memory of this process, its part of what it shares with others; in KiB.
unsigned long proportional_memory() {
  std::ifstream file("/proc/self/smaps_rollup");
  for (std::string word; file >> word;)
    if (word == "Pss:") {
      unsigned long size = 0;
      file >> size;
      return size;
    }
  return 0;
}

void wait_for_line() {
  for (int c = std::getchar(); c != '\n' && c != EOF;) c = std::getchar();
}

void run(unsigned first, unsigned count, unsigned rounds) {
  using Clock = std::chrono::steady_clock;
  const stream::Bytes bytes = make_stream();
  std::vector<GstElement*> receivers;
  for (unsigned i = 0; i < count; i++) receivers.push_back(make_receiver(first + i));
  std::puts("ready");
  std::fflush(stdout);
  wait_for_line();
  const double cpu = cpu_seconds();
  const auto begin = Clock::now();
  std::vector<std::thread> feeders;
  for (unsigned i = 0; i < count; i++)
    feeders.emplace_back(feed, first + i, std::cref(bytes), rounds);
  for (std::thread& feeder : feeders) feeder.join();
  const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
  std::printf(
      "{\"bytes\": %zu, \"sections\": %llu, \"seconds\": %.3f, \"cpu\": %.3f, \"pss_kib\": %lu}\n",
      bytes.size() * rounds * count, static_cast<unsigned long long>(g_sections), seconds,
      cpu_seconds() - cpu, proportional_memory());
  std::fflush(stdout);
  wait_for_line();
  for (GstElement* receiver : receivers) {
    gst_element_set_state(receiver, GST_STATE_NULL);
    gst_object_unref(receiver);
  }
}

}  // namespace

int main(int argc, char** argv) {
  gst_init(&argc, &argv);
  if (argc != 4) {
    std::fprintf(stderr, "usage: scaling-worker FIRST COUNT ROUNDS\n");
    return EXIT_FAILURE;
  }
  const auto number = [&](int i) { return static_cast<unsigned>(std::atoi(argv[i])); };
  run(number(1), number(2), number(3));
  return EXIT_SUCCESS;
}
