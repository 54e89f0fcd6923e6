// SPDX-License-Identifier: LGPL-2.1-or-later
//
// Requests of any kind in any order from several threads, while others feed
// and flush. What is asked for is mostly senseless; the receiver must answer.
#include <gtest/gtest.h>
#include <poll.h>
#include <qel/receiver.h>
#include <qel/trace.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "tests/receiver_fuzz/random_stream.h"
#include "tests/support/process.h"
#include "tests/support/test_node.h"

namespace {

using fuzz::Bytes;
using fuzz::Random;
using vantrel::test::open_descriptors;

constexpr unsigned kDemuxes = 2;
constexpr unsigned kCallers = 4;
constexpr int kCallsEach = 20000;

constexpr std::array kNames = {"qel_demux0",
                               "qel_demux0",
                               "qel_demux0",
                               "qel_demux1",
                               "qel_demux1",
                               "qel_demux1",
                               "qel_dvr0",
                               "qel_dvr1",
                               "qel_temi0",
                               "qel_temi1",
                               "vdec0",
                               "vdec1",
                               "adec0",
                               "qel_demux6",
                               "qel_demux",
                               "vdec4",
                               ""};

constexpr std::array<std::uint32_t, 12> kRequests = {
    KWRX_DMX_START,           KWRX_DMX_STOP,       KWRX_DMX_SET_FILTER, KWRX_DMX_SET_PES_FILTER,
    KWRX_DMX_SET_BUFFER_SIZE, KWRX_DMX_SET_SOURCE, KWRX_DMX_GET_STC,    KWRX_DMX_GET_READ_SIZE,
    KWRX_DMX_GET_PESTYPE,     DMX_GET_PES_PIDS,    DMX_ADD_PID,         DMX_REMOVE_PID};

constexpr std::array<const char*, 5> kFaults = {"* KWRX_DMX_START 1-3 EINVAL",
                                                "* read 2-5 overflow", "* read 1-9 short=7",
                                                "qel_demux0 open * EMFILE", nullptr};

/// Memory that may be written, with its neighbours, and some that may not.
class Memory {
 public:
  Memory()
      : pages_(static_cast<std::uint8_t*>(
            mmap(nullptr, 3 * kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))) {
    mprotect(pages_ + kPage, kPage, PROT_NONE);
    mprotect(pages_ + 2 * kPage, kPage, PROT_READ);
  }
  Memory(const Memory&) = delete;
  Memory& operator=(const Memory&) = delete;
  ~Memory() { munmap(pages_, 3 * kPage); }

  /// A pointer that mostly is good for a record.
  void* pointer(Random& random) {
    switch (random.below(12)) {
      case 0:
        return nullptr;
      case 1:
        return reinterpret_cast<void*>(random.below(5000));
      case 2:
        return reinterpret_cast<void*>(~std::uintptr_t{0} - random.below(100));
      case 3:
        return pages_ + kPage - random.below(70);  // runs into the page behind
      case 4:
        return pages_ + 2 * kPage;
      default:
        return pages_;
    }
  }
  std::uint8_t* record() { return pages_; }

 private:
  static constexpr std::size_t kPage = 4096;
  std::uint8_t* const pages_;
};

/// Descriptors that all threads take from.
class Pool {
 public:
  std::atomic<int>& any(Random& random) { return slots_[random.below(slots_.size())]; }
  void put(std::atomic<int>& slot, int fd) {
    const int former = slot.exchange(fd);
    if (former >= 0) qel_device_close(nullptr, former);
  }
  void empty() {
    for (std::atomic<int>& slot : slots_) put(slot, -1);
  }
  Pool() {
    for (std::atomic<int>& slot : slots_) slot = -1;
  }

 private:
  std::array<std::atomic<int>, 40> slots_;
};

/// One thread's calls.
class RandomCaller {
 public:
  RandomCaller(Pool& pool, Pool& blocking, unsigned seed)
      : pool_(pool), blocking_(blocking), random_(seed) {}
  void run(int calls) {
    for (int i = 0; i < calls; ++i) one_call();
  }

 private:
  void one_call() {
    std::atomic<int>& slot = pool_.any(random_);
    const std::size_t kind = random_.below(20);
    if (kind < 2) return pool_.put(slot, open());
    if (kind == 2 && random_.one_in(2)) return pool_.put(slot, -1);
    const int fd = slot;
    if (kind < 6) {
      read(fd);
    } else if (kind < 8) {
      set_section(fd);
    } else if (kind < 11) {
      set_pes(fd);
    } else if (kind < 13) {
      fill(random_.bytes(128));
      qel_device_ioctl(fd, kRequests[random_.below(kRequests.size())], memory_.pointer(random_));
    } else if (kind < 15) {
      fill(random_.bytes(128));
      qel_device_ioctl(fd, random_number(), memory_.pointer(random_));
    } else if (kind == 15) {
      disturb_blocked();
    } else if (kind == 16) {
      pollfd entry{fd, POLLIN, 0};
      poll(&entry, 1, 0);
    } else {
      simple(fd);
    }
  }

  int open() {
    const int access[] = {O_RDONLY, O_RDWR, O_WRONLY};
    const char* name = random_.one_in(50) ? nullptr : kNames[random_.below(kNames.size())];
    return qel_device_open(name, access[random_.below(3)] | O_NONBLOCK);
  }
  void read(int fd) {
    buffer_.resize(random_.below(random_.one_in(2) ? 100000 : 500));
    const ssize_t count = qel_device_read(fd, buffer_.data(), buffer_.size());
    if (count > 0) {
      EXPECT_LE(static_cast<std::size_t>(count), buffer_.size());
    }
  }
  void set_section(int fd) {
    dmx_sct_filter_params params{};
    params.pid = static_cast<std::uint16_t>(random_.one_in(9) ? random_.below(0x10000)
                                                              : 0x10 + random_.below(4));
    params.filter.mask[0] = random_.one_in(3) ? 0xff : 0;
    params.filter.filter[0] = static_cast<std::uint8_t>(0x40 + random_.below(8));
    params.timeout = random_.one_in(2) ? static_cast<unsigned>(random_.below(20)) : 0;
    params.flags = static_cast<unsigned>(random_.below(8));
    fill(params);
    qel_device_ioctl(fd, KWRX_DMX_SET_FILTER, memory_.record());
  }
  void set_pes(int fd) {
    // As plain words: no enumeration has all these values.
    const std::array<std::uint32_t, 5> words = {
        static_cast<std::uint32_t>(random_.one_in(9) ? random_.below(0x10000)
                                                     : 0x100 + random_.below(3)),
        static_cast<std::uint32_t>(random_.below(random_.one_in(9) ? 4 : 2)),
        static_cast<std::uint32_t>(random_.below(random_.one_in(9) ? 9 : 4)),
        static_cast<std::uint32_t>(random_.below(23)),
        static_cast<std::uint32_t>(random_.below(8))};
    fill(words);
    qel_device_ioctl(fd, KWRX_DMX_SET_PES_FILTER, memory_.record());
  }
  /// Requests that mean something.
  void simple(int fd) {
    const std::uint32_t request = kRequests[random_.below(kRequests.size())];
    if (request == KWRX_DMX_SET_BUFFER_SIZE) {
      qel_device_ioctl(fd, request, random_.below(random_.one_in(4) ? 200000000 : 20000));
    } else if (request == KWRX_DMX_GET_STC) {
      fill(dmx_stc{static_cast<unsigned>(random_.below(5)), 0, 0});
      qel_device_ioctl(fd, request, memory_.record());
    } else if (request == DMX_ADD_PID || request == DMX_REMOVE_PID) {
      fill(static_cast<std::uint16_t>(0x100 + random_.below(8)));
      qel_device_ioctl(fd, request, memory_.record());
    } else if (request == KWRX_DMX_START || request == KWRX_DMX_STOP) {
      qel_device_ioctl(fd, request, 0);
    }
  }
  /// Never a read, which might not return.
  void disturb_blocked() {
    std::atomic<int>& slot = blocking_.any(random_);
    if (random_.one_in(4)) return blocking_.put(slot, -1);
    qel_device_ioctl(slot, random_.one_in(2) ? KWRX_DMX_STOP : KWRX_DMX_START, 0);
  }
  unsigned long random_number() {
    const std::size_t number = random_.below(std::size_t{1} << 32);
    return random_.one_in(2) ? number : (number & ~std::size_t{0xff00}) | 0x6f00;
  }
  template <typename Record>
  void fill(const Record& record) {
    std::memcpy(memory_.record(), &record, sizeof record);
  }
  void fill(const Bytes& bytes) { std::memcpy(memory_.record(), bytes.data(), bytes.size()); }

  Pool& pool_;
  Pool& blocking_;
  Random random_;
  Memory memory_;
  Bytes buffer_;
};

void feed_until(const std::atomic<bool>& stop, unsigned demux, dmx_input input, unsigned seed) {
  Random random(seed);
  fuzz::RandomStream source(seed, {.flipped_bit = 20, .lost = 50, .repeated = 50});
  const Bytes stream = source.packets(4000);
  while (!stop) {
    const std::size_t at = random.below(stream.size());
    const std::size_t count = std::min(stream.size() - at, random.below(100000));
    const int result = qel_receiver_feed(demux, input, stream.data() + at, count);
    EXPECT_TRUE(result == 0 || errno == ECANCELED || errno == EBUSY) << errno;
    if (random.one_in(50)) qel_receiver_end(demux, input);
  }
}

/// What an application may do meanwhile.
void disturb_until(const std::atomic<bool>& stop, unsigned seed) {
  Random random(seed);
  while (!stop) {
    const auto demux = static_cast<unsigned>(random.below(kDemuxes));
    const auto input = static_cast<dmx_input>(random.below(2));
    qel_input_counters counters;
    switch (random.below(7)) {
      case 0:
        vantrel::test::flush(demux, input);
        break;
      case 1:
        std::free(qel_receiver_describe(demux));
        break;
      case 2:
        qel_receiver_reset_counters(demux);
        break;
      case 3:
        qel_receiver_get_input_counters(demux, input, &counters);
        break;
      case 4:
        qel_receiver_set_pacing(demux, random.one_in(4));
        break;
      case 5:
        EXPECT_EQ(qel_faults_set(kFaults[random.below(kFaults.size())]), 0);
        break;
      default:
        qel_receiver_foreach_node(
            demux, [](const qel_node_counters*, void*) {}, nullptr);
    }
    usleep(200);
  }
  qel_faults_set(nullptr);
}

/// Reads that block, on nodes that the callers close under them.
void block_until(const std::atomic<bool>& stop, Pool& pool, unsigned seed) {
  Random random(seed);
  Bytes buffer(5000);
  while (!stop) {
    const int fd = qel_device_open("qel_demux0", O_RDWR);
    if (fd < 0) continue;
    dmx_sct_filter_params params{};
    params.pid = 0x10;
    params.flags = DMX_IMMEDIATE_START;
    params.timeout = 50;
    qel_device_ioctl(fd, KWRX_DMX_SET_FILTER, &params);
    pool.put(pool.any(random), fd);
    if (stop) pool.empty();  // who set it may have emptied the pool before
    while (qel_device_read(fd, buffer.data(), buffer.size()) > 0) continue;
  }
}

void set_flushing_everywhere(int flushing) {
  for (unsigned demux = 0; demux < kDemuxes; ++demux) {
    for (const dmx_input input : {DMX_IN_FRONTEND, DMX_IN_DVR})
      qel_receiver_set_flushing(demux, input, flushing);
  }
}

/// Everything at once, until the callers are through.
void storm(unsigned seed) {
  Pool pool, blocking;
  std::atomic<bool> stop{false};
  std::vector<std::thread> callers, others;
  for (unsigned demux = 0; demux < kDemuxes; ++demux) {
    for (const dmx_input input : {DMX_IN_FRONTEND, DMX_IN_DVR})
      others.emplace_back([&stop, demux, input, seed] {
        feed_until(stop, demux, input, seed * 100 + demux * 2 + input);
      });
  }
  others.emplace_back([&stop, seed] { disturb_until(stop, seed); });
  others.emplace_back([&stop, &blocking, seed] { block_until(stop, blocking, seed); });
  for (unsigned i = 0; i < kCallers; ++i) {
    callers.emplace_back([&pool, &blocking, seed, i] {
      RandomCaller(pool, blocking, seed * 100 + i).run(kCallsEach);
    });
  }
  for (std::thread& caller : callers) caller.join();
  stop = true;
  pool.empty();
  blocking.empty();
  set_flushing_everywhere(1);
  for (std::thread& other : others) other.join();
  set_flushing_everywhere(0);
}

void expect_works(unsigned demux) {
  stream::Multiplex mux;
  const Bytes packets = mux.sections(0x10, {stream::section(0x42, 1, 100)});
  for (const dmx_input input : {DMX_IN_FRONTEND, DMX_IN_DVR}) {
    vantrel::test::TestNode node("qel_demux" + std::to_string(demux));
    ASSERT_TRUE(node);
    ASSERT_EQ(node.section(0x10), 0);
    EXPECT_EQ(qel_receiver_feed(demux, input, packets.data(), packets.size()), 0);
    EXPECT_EQ(node.read().size(), 100U);
  }
}

TEST(ReceiverFuzz, RequestsOfSeveralThreadsHangCrashOrLeak) {
  std::atomic<std::uint64_t> traced{0};
  for (unsigned seed = 1; seed <= 3; ++seed) {
    SCOPED_TRACE(seed);
    const std::size_t before = open_descriptors();
    const auto count = [](const char*, void* data) {
      ++*static_cast<std::atomic<std::uint64_t>*>(data);
    };
    if (seed == 2) qel_trace_set_callback(count, &traced, 1);
    vantrel::test::within_limit([seed] { storm(seed); }, std::chrono::seconds(150));
    qel_trace_set_callback(nullptr, nullptr, 0);
    // A thread of the receiver's may hold a node a moment longer.
    EXPECT_TRUE(vantrel::test::eventually([before] { return open_descriptors() == before; }));
    for (unsigned demux = 0; demux < kDemuxes; ++demux) {
      EXPECT_EQ(qel_receiver_foreach_node(
                    demux, [](const qel_node_counters*, void*) {}, nullptr),
                0);
      qel_receiver_set_pacing(demux, 0);
      expect_works(demux);
    }
  }
  EXPECT_GT(traced, 0U);
}

}  // namespace
