// SPDX-License-Identifier: LGPL-2.1-or-later
//
// How fast the element answers, and what it costs when nothing happens. Prints
// one JSON object; times in microseconds, memory in bytes.
#include <fcntl.h>
#include <gst/gst.h>
#include <poll.h>
#include <qel/device.h>
#include <qel/receiver.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <stop_token>
#include <thread>
#include <vector>

#include "tests/support/ts_builder.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned kSamples = 1000;
constexpr unsigned kPid = 0x100;
constexpr auto kIdle = std::chrono::seconds(5);

double microseconds(Clock::duration duration) {
  return std::chrono::duration<double, std::micro>(duration).count();
}

GstElement* make_element(guint demux_type) {
  GstElement* element = gst_element_factory_make("vantrel", nullptr);
  if (element == nullptr) g_error("the element is not to be found: is GST_PLUGIN_PATH set?");
  gst_object_ref_sink(element);
  g_object_set(element, "demux-type", demux_type, nullptr);
  return element;
}

void drop(GstElement* element) {
  gst_element_set_state(element, GST_STATE_NULL);
  gst_object_unref(element);
}

void add_filter(GstElement* element, unsigned pid, unsigned table_id) {
  gpointer handle = nullptr;
  g_signal_emit_by_name(element, "add-filter", pid, table_id, 0U, nullptr, nullptr, 0U, FALSE, TRUE,
                        nullptr, &handle);
}

void feed(dmx_input input, const stream::Bytes& bytes) {
  qel_receiver_feed(0, input, bytes.data(), bytes.size());
}

struct Times {
  std::vector<double> sorted;

  explicit Times(std::vector<double> samples) : sorted(std::move(samples)) {
    std::sort(sorted.begin(), sorted.end());
  }
  void print(const char* name, const char* end) const {
    std::printf(
        "  \"%s\": {\"median\": %.1f, \"p99\": %.1f, \"worst\": %.1f, \"samples\": %zu}%s\n", name,
        sorted[sorted.size() / 2], sorted[sorted.size() * 99 / 100], sorted.back(), sorted.size(),
        end);
  }
};

// Last packet of a section fed -> handler called

std::atomic<Clock::rep> g_called{0};

void on_section(GstElement*, guint, guint, gpointer, guint, gpointer, gpointer) {
  g_called = Clock::now().time_since_epoch().count();
}

/// At moments spread over the reader's sleep and its wait.
Times section_latency() {
  GstElement* element = make_element(1);
  g_signal_connect(element, "section-upload", G_CALLBACK(on_section), nullptr);
  add_filter(element, kPid, 0x42);
  gst_element_set_state(element, GST_STATE_PLAYING);
  stream::Multiplex multiplex;
  std::vector<double> samples;
  for (unsigned i = 0; i < kSamples; i++) {
    const auto packets =
        multiplex.sections(kPid, {stream::section(0x42, static_cast<std::uint16_t>(i), 1024)});
    std::this_thread::sleep_for(std::chrono::microseconds(2000 + i * 37 % 5000));
    g_called = 0;
    const Clock::time_point fed = Clock::now();
    feed(DMX_IN_DVR, packets);
    while (g_called == 0) std::this_thread::yield();
    samples.push_back(microseconds(Clock::duration(g_called) - fed.time_since_epoch()));
  }
  drop(element);
  return Times(std::move(samples));
}

// "vpid" written -> filter running, while the demux is being fed

Times zap_latency(unsigned subtitles) {
  GstElement* element = make_element(0);
  g_object_set(element, "videodec-device", "vdec0", nullptr);
  gst_element_set_state(element, GST_STATE_PLAYING);
  for (unsigned i = 0; i < subtitles; i++)
    g_object_set(element, "isdb-pid", static_cast<gint>(0x200 + i), nullptr);
  g_object_set(element, "vpid", kPid, nullptr);
  std::atomic<bool> done{false};
  std::thread feeder([&] {
    stream::Multiplex multiplex;
    stream::Bytes packets;
    for (unsigned i = 0; i < 348; i++)  // 64 KiB
      stream::operator+=(packets, multiplex.packet(kPid + i % 8, stream::counting(184)));
    while (!done) feed(DMX_IN_FRONTEND, packets);
  });
  std::vector<double> samples;
  for (unsigned i = 0; i < kSamples; i++) {
    const Clock::time_point before = Clock::now();
    g_object_set(element, "vpid", kPid + i % 8, nullptr);
    samples.push_back(microseconds(Clock::now() - before));
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
  done = true;
  feeder.join();
  drop(element);
  return Times(std::move(samples));
}

// "vpid" written -> first PES byte at the port, in a stream of 15 Mbit/s

constexpr unsigned kPidsInTurn = 8;
constexpr unsigned kUnit = 20;  // packets of a PES packet

/// A multiplex that goes on at its pace, and when it had what somebody waits for.
class PacedFeed {
 public:
  PacedFeed() : thread_([this](const std::stop_token& stop) { run(stop); }) {}

  /// The next start of a PES packet on this PID is waited for from now on.
  void wait_for(unsigned pid) {
    started_ = 0;
    wanted_ = pid;
  }
  /// When it was fed; 0 before.
  [[nodiscard]] Clock::rep started() const { return started_; }

 private:
  void run(const std::stop_token& stop) {
    for (Clock::time_point next = Clock::now(); !stop.stop_requested(); next += kStep) {
      for (unsigned i = 0; i < 10; i++) feed_packet();
      std::this_thread::sleep_until(next);
    }
  }
  void feed_packet() {
    const unsigned pid = kPid + count_ % kPidsInTurn;
    const bool start = count_++ / kPidsInTurn % kUnit == 0;
    const auto packet = start ? mux_.unit(pid, stream::pes(0xE0, 170, false))
                              : mux_.packet(pid, stream::counting(184));
    if (start && pid == wanted_) {
      wanted_ = 0;
      started_ = Clock::now().time_since_epoch().count();
    }
    feed(DMX_IN_FRONTEND, packet);
  }

  static constexpr auto kStep = std::chrono::milliseconds(1);
  stream::Multiplex mux_;
  unsigned count_ = 0;
  std::atomic<unsigned> wanted_{0};
  std::atomic<Clock::rep> started_{0};
  std::jthread thread_;
};

void print_first_byte() {
  GstElement* element = make_element(0);
  g_object_set(element, "videodec-device", "vdec0", nullptr);
  const int port = qel_device_open("vdec0", O_RDONLY | O_NONBLOCK);
  gst_element_set_state(element, GST_STATE_PLAYING);
  PacedFeed multiplex;
  std::vector<double> to_start;
  std::vector<double> to_byte;
  std::vector<std::uint8_t> buffer(65536);
  for (unsigned i = 0; i < kSamples / 4; i++) {
    const unsigned pid = kPid + i * 3 % kPidsInTurn;
    const Clock::rep before = Clock::now().time_since_epoch().count();
    g_object_set(element, "vpid", pid, nullptr);
    while (qel_device_read(port, buffer.data(), buffer.size()) > 0) {
    }
    multiplex.wait_for(pid);
    pollfd entry = {.fd = port, .events = POLLIN, .revents = 0};
    while (qel_device_read(port, buffer.data(), buffer.size()) <= 0) poll(&entry, 1, 1000);
    const Clock::rep now = Clock::now().time_since_epoch().count();
    to_start.push_back(microseconds(Clock::duration(multiplex.started() - before)));
    to_byte.push_back(microseconds(Clock::duration(now - before)));
  }
  Times(std::move(to_start)).print("zap_to_unit_start", ",");
  Times(std::move(to_byte)).print("zap_to_first_byte", ",");
  drop(element);
  qel_device_close("vdec0", port);
}

// What it costs when nothing happens

double cpu_seconds(const rusage& usage) {
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

struct Cost {
  double core_share;
  double wakeups;  // a second
};

/// Of the whole process, for kIdle.
Cost cost_of_waiting() {
  rusage before{};
  rusage after{};
  getrusage(RUSAGE_SELF, &before);
  std::this_thread::sleep_for(kIdle);
  getrusage(RUSAGE_SELF, &after);
  const double seconds = std::chrono::duration<double>(kIdle).count();
  return {(cpu_seconds(after) - cpu_seconds(before)) / seconds,
          static_cast<double>(after.ru_nvcsw - before.ru_nvcsw) / seconds};
}

void print_cost(const char* name, const Cost& cost) {
  std::printf("  \"%s\": {\"core_share\": %.5f, \"wakeups\": %.1f},\n", name, cost.core_share,
              cost.wakeups);
}

/// An element that waits, beside the least that a loop of 1 ms can cost.
void print_idle() {
  GstElement* element = make_element(1);
  gst_element_set_state(element, GST_STATE_PLAYING);
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  print_cost("idle", cost_of_waiting());
  drop(element);
  std::atomic<bool> done{false};
  std::thread loop([&] {
    while (!done) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  });
  print_cost("idle_bare", cost_of_waiting());
  done = true;
  loop.join();
}

long resident_bytes() {
  std::ifstream file("/proc/self/statm");
  long size = 0;
  long resident = 0;
  file >> size >> resident;
  return resident * sysconf(_SC_PAGESIZE);
}

/// 96 filters that nothing comes for.
void print_idle_filters() {
  GstElement* element = make_element(1);
  gst_element_set_state(element, GST_STATE_PLAYING);
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  const long memory = resident_bytes();
  for (unsigned i = 0; i < 96; i++) add_filter(element, kPid + i, 0x42);
  const Cost cost = cost_of_waiting();
  std::printf("  \"idle96\": {\"core_share\": %.5f, \"wakeups\": %.1f, \"bytes\": %ld}\n",
              cost.core_share, cost.wakeups, resident_bytes() - memory);
  drop(element);
}

}  // namespace

int main(int argc, char** argv) {
  setenv("QEL_PACE", "none", 1);
  gst_init(&argc, &argv);
  std::printf("{\n");
  section_latency().print("section_latency", ",");
  zap_latency(0).print("zap", ",");
  zap_latency(3).print("zap_with_3_subtitles", ",");
  print_first_byte();
  print_idle();
  print_idle_filters();
  std::printf("}\n");
  return 0;
}
