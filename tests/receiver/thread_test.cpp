// SPDX-License-Identifier: LGPL-2.1-or-later
#include <atomic>
#include <random>

#include "tests/receiver/fixture.h"

namespace {

using stream::Bytes;
using stream::section;
using Sizes = std::vector<int>;
using namespace std::chrono_literals;

constexpr unsigned kThreadPid = 0x12;

class ThreadTest : public ReceiverTest {};

TEST_F(ThreadTest, RequestsStarveBesideABusyFeeder) {
  // Long enough that requests come in the middle, whatever the machine.
  Bytes data;
  while (data.size() < 4 << 20) data += mux.packet(kThreadPid, stream::counting(184));
  std::atomic<bool> stop{false};
  Background feeder([&] {
    while (!stop) feed(data);
    return 0;
  });
  for (int i = 0; i < 2000; ++i) {
    TestNode node("qel_demux0");
    ASSERT_EQ(node.section(kThreadPid + 1), 0);
  }
  stop = true;
  EXPECT_EQ(feeder.result(), 0);
}

/// Everything at once: both inputs fed, filters of every kind set, started,
/// stopped, read, closed and flushed. The sanitizers judge; what is delivered
/// must be whole.
TEST_F(ThreadTest, CallsFromManyThreadsCorruptSections) {
  std::atomic<bool> stop{false};
  std::vector<std::unique_ptr<Background>> threads;
  const auto run = [&](std::function<void()> call) {
    threads.push_back(std::make_unique<Background>([&stop, call = std::move(call)] {
      while (!stop) call();
      return 0;
    }));
  };
  for (const dmx_input input : {DMX_IN_FRONTEND, DMX_IN_DVR}) {
    auto source = std::make_shared<stream::Multiplex>();
    run([source, input] {
      feed(stream::join(
               {source->sections(kThreadPid, {section(0x42, 1, 300), section(0x43, 2, 2000)}),
                source->unit(kThreadPid + 1, stream::pes(0xe0, 3000)),
                source->unit(kThreadPid + 2, stream::pes(0xc0, 1000))}),
           input);
    });
  }
  std::atomic<std::uint64_t> sections{0};
  run([&] {
    TestNode node("qel_demux0");
    node.buffer(4096);
    node.section(kThreadPid, DMX_IMMEDIATE_START | DMX_CHECK_CRC, {}, 1);
    for (int i = 0; i < 20; ++i) {
      node.readable(1);
      for (const int size : node.drain()) {
        EXPECT_TRUE(size == 300 || size == 2000 || size < 0) << size;
        sections += size > 0;
      }
    }
  });
  run([] {
    TestNode video("qel_demux0"), tap("qel_demux0"), recorded("qel_demux0"), clock("qel_demux0");
    video.pes(kThreadPid + 1, DMX_OUT_DECODER, DMX_PES_VIDEO0);
    tap.pes(kThreadPid + 2, DMX_OUT_TAP);
    recorded.pes(0x2000, DMX_OUT_TS_TAP);
    clock.pes(kThreadPid + 1, DMX_OUT_DECODER, DMX_PES_PCR0);
    for (int i = 0; i < 20; ++i) {
      tap.readable(1);
      tap.drain();
      video.control(i % 2 ? KWRX_DMX_STOP : KWRX_DMX_START);
    }
  });
  run([] {
    TestNode port("vdec0", O_RDONLY | O_NONBLOCK), record("qel_dvr0", O_RDONLY | O_NONBLOCK);
    for (int i = 0; i < 10 && port && record; ++i) {
      port.readable(1);
      port.read_all();
      record.read_all();
      if (i % 5 == 4) port.buffer(10000 + static_cast<std::size_t>(i));
    }
  });
  run([] {
    TestNode video("qel_demux1");
    video.pes(kThreadPid, DMX_OUT_DECODER, DMX_PES_VIDEO0, DMX_IN_FRONTEND);
    stream::Multiplex other;
    const Bytes data = other.unit(kThreadPid, stream::pes(0xe0, 500));
    qel_receiver_feed(1, DMX_IN_FRONTEND, data.data(), data.size());
    qel_receiver_end(1, DMX_IN_FRONTEND);
  });
  run([] {
    std::this_thread::sleep_for(2ms);
    for (const dmx_input input : {DMX_IN_FRONTEND, DMX_IN_DVR}) {
      qel_receiver_set_flushing(0, input, 1);
      qel_receiver_set_flushing(0, input, 0);
    }
    free(qel_receiver_describe(0));
  });
  for (int i = 0; i < 2000 && sections < 200; ++i) std::this_thread::sleep_for(10ms);
  EXPECT_GE(sections, 200U);
  stop = true;
  threads.clear();
}

}  // namespace
