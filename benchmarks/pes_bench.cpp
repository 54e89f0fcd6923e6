// SPDX-License-Identifier: LGPL-2.1-or-later
//
// How much subtitle data an application gets through "pes-upload". The reader
// looks at its nodes every 30 ms; a node holds 131072 bytes, and the feed waits
// while it is full. Prints one JSON object: bytes a second, median of five, and
// the ratio to one full node a pass.
#include <gst/gst.h>
#include <qel/receiver.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>

#include "tests/support/ts_builder.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned kPid = 0x21;
constexpr std::size_t kBytes = std::size_t{16} << 20;
constexpr std::size_t kBlock = 64 * 1024;
/// One node's buffer each sleep of 30 ms.
constexpr double kOneBufferAPass = 131072 / 0.030;

std::atomic<std::size_t> g_received{0};

void on_pes(GstElement*, guint, gpointer, guint size, gpointer) { g_received += size; }

/// Packets of PES packets of `size` bytes, and how many of those bytes there are.
std::size_t make_stream(std::size_t size, stream::Bytes* packets) {
  stream::Multiplex multiplex;
  const stream::Bytes pes = stream::pes(0xBD, size - 9);
  std::size_t sum = 0;
  for (; sum < kBytes; sum += pes.size()) stream::operator+=(*packets, multiplex.unit(kPid, pes));
  return sum;
}

double seconds_to_deliver(GstElement* element, const stream::Bytes& packets, std::size_t bytes) {
  gst_element_set_state(element, GST_STATE_PLAYING);
  g_received = 0;
  const auto begin = Clock::now();
  for (std::size_t at = 0; at < packets.size(); at += kBlock)
    qel_receiver_feed(0, DMX_IN_DVR, packets.data() + at, std::min(kBlock, packets.size() - at));
  while (g_received < bytes) std::this_thread::sleep_for(std::chrono::microseconds(100));
  const std::chrono::duration<double> duration = Clock::now() - begin;
  return duration.count();
}

double median_rate(std::size_t pes_size) {
  GstElement* element = gst_element_factory_make("vantrel", nullptr);
  if (element == nullptr) g_error("the element is not to be found: is GST_PLUGIN_PATH set?");
  gst_object_ref_sink(element);
  g_object_set(element, "demux-type", 1, "sub-pid", static_cast<gint>(kPid), nullptr);
  g_signal_connect(element, "pes-upload", G_CALLBACK(on_pes), nullptr);
  stream::Bytes packets;
  const std::size_t bytes = make_stream(pes_size, &packets);
  std::array<double, 5> rates;
  for (double& rate : rates)
    rate = static_cast<double>(bytes) / seconds_to_deliver(element, packets, bytes);
  gst_element_set_state(element, GST_STATE_NULL);
  gst_object_unref(element);
  std::sort(rates.begin(), rates.end());
  return rates[rates.size() / 2];
}

void print(const char* name, std::size_t pes_size, const char* end) {
  const double rate = median_rate(pes_size);
  std::printf("  \"%s\": {\"bytes_per_second\": %.0f, \"buffers_a_pass\": %.2f}%s\n", name, rate,
              rate / kOneBufferAPass, end);
}

}  // namespace

int main(int argc, char** argv) {
  gst_init(&argc, &argv);
  std::printf("{\n");
  print("pes_2000", 2000, ",");
  print("pes_60000", 60000, "");
  std::printf("}\n");
  return 0;
}
