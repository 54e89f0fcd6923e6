// SPDX-License-Identifier: LGPL-2.1-or-later

// What the calls cost that the element makes most often: the read of a section,
// beside the cheapest read the kernel has, and a log line that nobody wants.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <gst/gst.h>
#include <qel/device.h>
#include <qel/dmx.h>
#include <qel/log.h>
#include <qel/receiver.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "common/unique_fd.h"
#include "tests/support/ts_builder.h"

namespace {

constexpr unsigned kPid = 100;
constexpr std::uint8_t kTableId = 0x42;
constexpr std::size_t kSectionSize = 183;
constexpr unsigned kSections = 4000;

int open_section_node() {
  const int fd = qel_device_open("qel_demux0", O_RDWR | O_NONBLOCK);
  dmx_sct_filter_params filter{};
  filter.pid = kPid;
  filter.filter.filter[0] = kTableId;
  filter.filter.mask[0] = 0xff;
  filter.flags = DMX_IMMEDIATE_START;
  qel_device_ioctl(fd, KWRX_DMX_SET_BUFFER_SIZE, 1UL << 20);
  qel_device_ioctl(fd, KWRX_DMX_SET_FILTER, &filter);
  return fd;
}

stream::Bytes section_packets() {
  stream::Multiplex multiplex;
  stream::Bytes bytes;
  for (unsigned i = 0; i < kSections; ++i) {
    const auto packet = multiplex.sections(kPid, {stream::short_section(kTableId, kSectionSize)});
    bytes.insert(bytes.end(), packet.begin(), packet.end());
  }
  return bytes;
}

void read_section(benchmark::State& state) {
  const int fd = open_section_node();
  const stream::Bytes packets = section_packets();
  std::uint8_t section[4096];
  while (state.KeepRunningBatch(kSections)) {
    state.PauseTiming();
    qel_receiver_feed(0, DMX_IN_FRONTEND, packets.data(), packets.size());
    state.ResumeTiming();
    for (unsigned i = 0; i < kSections; ++i)
      if (qel_device_read(fd, section, sizeof section) != kSectionSize)
        return state.SkipWithError("a section is lost");
  }
  qel_device_close("qel_demux0", fd);
}
BENCHMARK(read_section);

void read_eventfd(benchmark::State& state) {
  const vantrel::UniqueFD fd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK | EFD_SEMAPHORE));
  eventfd_write(fd.get(), UINT32_MAX);
  eventfd_t value;
  for (auto _ : state)
    if (read(fd.get(), &value, sizeof value) != sizeof value)
      return state.SkipWithError("nothing to read");
}
BENCHMARK(read_eventfd);

void log_enabled(benchmark::State& state) {
  gst_debug_set_default_threshold(static_cast<GstDebugLevel>(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(qel_log_enabled(QEL_LOG_DEBUG, "vantrel"));
}
BENCHMARK(log_enabled)->Arg(GST_LEVEL_NONE)->Arg(GST_LEVEL_WARNING);

void log_write_disabled(benchmark::State& state) {
  gst_debug_set_default_threshold(GST_LEVEL_NONE);
  for (auto _ : state)
    qel_log_write(QEL_LOG_BUFFER_MAIN, QEL_LOG_DEBUG, "vantrel", "%s: %s(%d) > %d", "file",
                  __func__, __LINE__, 1);
}
BENCHMARK(log_write_disabled);

}  // namespace

int main(int argc, char** argv) {
  gst_init(&argc, &argv);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
