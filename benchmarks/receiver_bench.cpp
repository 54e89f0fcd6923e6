// SPDX-License-Identifier: LGPL-2.1-or-later
//
// What the receiver costs over just looking at every packet's header, on a
// stream mapped from a file. VANTREL_BENCH_FILE names one (as large as memory
// allows, for a stream is seldom in the cache); without it one is made.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <qel/dmx.h>
#include <qel/receiver.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "common/unique_fd.h"
#include "platform/receiver/driver.h"

namespace {

constexpr std::size_t kPacket = 188;
constexpr std::size_t kPackets = 1'400'000;  // 263 MB
constexpr unsigned kPids = 128;
constexpr unsigned kFirstPid = 0x100;

/// A multiplex of PIDs in runs of a few packets: PES packets of 20 TS packets,
/// without adaptation fields.
class Generator {
 public:
  explicit Generator(unsigned pids) : counters_(pids) {}

  void fill(std::uint8_t* packets, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) make(packets + i * kPacket);
  }

 private:
  void make(std::uint8_t* packet) {
    if (run_-- == 0) {
      index_ = random_() % static_cast<unsigned>(counters_.size());
      run_ = random_() % 4;
    }
    const unsigned pid = kFirstPid + index_;
    const bool start = counters_[index_] % 20 == 0;
    packet[0] = 0x47;
    packet[1] = static_cast<std::uint8_t>((start ? 0x40U : 0U) | pid >> 8);
    packet[2] = static_cast<std::uint8_t>(pid);
    packet[3] = static_cast<std::uint8_t>(0x10 | counters_[index_]++ % 16);
    std::memset(packet + 4, static_cast<int>(random_()), 184);
    constexpr std::uint8_t kHeader[] = {0, 0, 1, 0xe0, 0, 0, 0x80, 0, 0};
    if (start) std::memcpy(packet + 4, kHeader, sizeof kHeader);
  }

  std::mt19937 random_{1};
  std::vector<unsigned> counters_;
  unsigned index_ = 0;
  unsigned run_ = 0;
};

vantrel::UniqueFD make_file() {
  vantrel::UniqueFD file(fileno(std::tmpfile()));
  vantrel::UniqueFD copy(dup(file.release()));
  Generator generator(kPids);
  std::vector<std::uint8_t> packets(kPacket * 1000);
  for (std::size_t done = 0; done < kPackets; done += 1000) {
    generator.fill(packets.data(), 1000);
    if (write(copy.get(), packets.data(), packets.size()) < 0) std::abort();
  }
  return copy;
}

/// The stream, mapped once.
struct Mapped {
  const std::uint8_t* data = nullptr;
  std::size_t size = 0;
};

const Mapped& mapped() {
  static const Mapped instance = [] {
    const char* name = std::getenv("VANTREL_BENCH_FILE");
    const vantrel::UniqueFD file =
        name ? vantrel::UniqueFD(open(name, O_RDONLY | O_CLOEXEC)) : make_file();
    struct stat status {};
    if (fstat(file.get(), &status) < 0) std::abort();
    Mapped result;
    result.size = static_cast<std::size_t>(status.st_size) / kPacket * kPacket;
    void* memory = mmap(nullptr, result.size, PROT_READ, MAP_SHARED | MAP_POPULATE, file.get(), 0);
    if (memory == MAP_FAILED) std::abort();
    result.data = static_cast<const std::uint8_t*>(memory);
    return result;
  }();
  return instance;
}

void rate(benchmark::State& state, std::size_t bytes) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
  state.counters["packets/s"] = benchmark::Counter(
      static_cast<double>(state.iterations() * bytes / kPacket), benchmark::Counter::kIsRate);
}

/// Bytes that a run takes: all of the stream, or a part that fits the cache.
std::size_t part(const benchmark::State& state) {
  const auto wanted = static_cast<std::size_t>(state.range(0)) / kPacket * kPacket;
  return wanted == 0 ? mapped().size : std::min(wanted, mapped().size);
}

/// The yardstick: reads each header, checks its sync byte, looks at its PID.
void BM_BareWalk(benchmark::State& state) {
  const std::uint8_t* data = mapped().data;
  const std::size_t size = part(state);
  for (auto _ : state) {
    std::uint64_t sum = 0;
    for (const std::uint8_t* at = data; at < data + size; at += kPacket) {
      std::uint32_t header;
      std::memcpy(&header, at, sizeof header);
      header = __builtin_bswap32(header);
      if (header >> 24 != 0x47) break;
      sum += (header >> 8) & 0x1fff;
    }
    benchmark::DoNotOptimize(sum);
  }
  rate(state, size);
}

constexpr std::size_t kPiece = 64 * 1024;

void feed(const std::uint8_t* data, std::size_t size) {
  if (qel_receiver_feed(0, DMX_IN_DVR, data, size) < 0) std::abort();
}

void start_anew() {
  qel_receiver_set_flushing(0, DMX_IN_DVR, 1);
  qel_receiver_set_flushing(0, DMX_IN_DVR, 0);
}

void BM_NoFilter(benchmark::State& state) {
  const std::uint8_t* data = mapped().data;
  const std::size_t size = part(state);
  for (auto _ : state) {
    start_anew();
    for (std::size_t at = 0; at < size; at += kPiece) feed(data + at, std::min(kPiece, size - at));
  }
  rate(state, size);
}

/// Four times a filter's share of a block, and room for a few PES packets.
std::uintptr_t buffer_size(unsigned filters) {
  return std::max<std::uintptr_t>(4 * kPiece / filters, 16 * 1024);
}

std::vector<std::shared_ptr<qel::Node>> open_filters(unsigned count, dmx_output output) {
  std::vector<std::shared_ptr<qel::Node>> nodes;
  for (unsigned i = 0; i < count; ++i) {
    int error = 0;
    auto node = qel::receiver::open_node("qel_demux0", O_RDWR | O_NONBLOCK, error);
    if (!node) std::abort();
    dmx_pes_filter_params params{};
    params.pid = static_cast<std::uint16_t>(kFirstPid + i);
    params.input = DMX_IN_DVR;
    params.output = output;
    params.pes_type = DMX_PES_OTHER;
    params.flags = DMX_IMMEDIATE_START;
    node->control(KWRX_DMX_SET_BUFFER_SIZE, reinterpret_cast<void*>(buffer_size(count)));
    node->control(KWRX_DMX_SET_PES_FILTER, &params);
    nodes.push_back(std::move(node));
  }
  return nodes;
}

/// Feeds blocks; the feeding thread reads every tap after each. Returns the
/// number of bytes read.
std::uint64_t feed_and_read(const std::uint8_t* data, std::size_t size,
                            const std::vector<std::shared_ptr<qel::Node>>& nodes) {
  static std::vector<std::uint8_t> buffer(kPiece);
  std::uint64_t got = 0;
  start_anew();
  for (std::size_t at = 0; at < size; at += kPiece) {
    feed(data + at, std::min(kPiece, size - at));
    for (const auto& node : nodes) {
      ssize_t count = 0;
      while ((count = node->read(buffer.data(), buffer.size())) > 0)
        got += static_cast<std::uint64_t>(count);
    }
  }
  return got;
}

void tap(benchmark::State& state, const std::uint8_t* data, std::size_t size, unsigned filters) {
  const auto nodes = open_filters(filters, DMX_OUT_TAP);
  std::uint64_t got = 0;
  for (auto _ : state) got += feed_and_read(data, size, nodes);
  rate(state, size);
  state.counters["read/s"] =
      benchmark::Counter(static_cast<double>(got), benchmark::Counter::kIsRate);
  for (const auto& node : nodes) node->close();
}

/// PES taps on range(1) of the stream's PIDs: more of them take more of it.
void BM_PesTaps(benchmark::State& state) {
  tap(state, mapped().data, part(state), static_cast<unsigned>(state.range(1)));
}

/// PES taps on all PIDs of a stream that has range(0) of them: however many, they
/// take all of it.
void BM_PesFilters(benchmark::State& state) {
  const auto filters = static_cast<unsigned>(state.range(0));
  std::vector<std::uint8_t> packets(kPacket * 350'000);  // 66 MB
  Generator(filters).fill(packets.data(), packets.size() / kPacket);
  tap(state, packets.data(), packets.size(), filters);
}

BENCHMARK(BM_BareWalk)->Arg(0)->Arg(1 << 20)->Arg(32 << 10);
BENCHMARK(BM_NoFilter)->Arg(0)->Arg(1 << 20)->Arg(32 << 10);
BENCHMARK(BM_PesFilters)->Arg(1)->Arg(8)->Arg(32)->Arg(128);
BENCHMARK(BM_PesTaps)->Args({0, 1})->Args({0, 8})->Args({0, 32})->Args({0, 128});

}  // namespace

BENCHMARK_MAIN();
