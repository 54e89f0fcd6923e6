// SPDX-License-Identifier: LGPL-2.1-or-later
#include "readers/temi_reader.h"

#include <gtest/gtest.h>
#include <qel/device.h>

#include <thread>

#include "plugin/lifecycle.h"
#include "tests/element/harness.h"
#include "tests/support/ts_builder.h"

namespace vantrel::testing {
namespace {

using stream::operator+;
using stream::operator+=;

/// Packets with descriptors in them, and what is to arrive of those.
struct Timeline {
  /// `others`, which the receiver passes over, follow in the same extension.
  void add(const stream::Bytes& descriptors, const stream::Bytes& others = {}) {
    written.insert(written.end(), descriptors.begin(), descriptors.end());
    const bool with_payload = count++ % 2 != 0;
    packets += multiplex.packet(0x100 + count % 3, stream::counting(with_payload ? 10 : 0),
                                {.pcr = count % 5 != 0 ? -1 : std::int64_t{2700} * count,
                                 .af_descriptors = descriptors + others});
  }
  std::string take() {
    const std::string taken(packets.begin(), packets.end());
    packets.clear();
    return taken;
  }

  stream::Multiplex multiplex;
  stream::Bytes packets;
  std::string written;
  unsigned count = 0;
};

std::string received(Element& element) {
  std::string all;
  for (const Delivery& delivery : element.deliveries()) all += delivery.bytes;
  return all;
}

/// An element that reads TEMI.
void start(Element& element) {
  element.go(GST_STATE_PAUSED);
  gst_vantrel_temi_initiate(element.state());
  element.set("enable", TRUE);
}

TEST(TemiReader, DeliversWhatWasWrittenAndNothingElse) {
  Element element(DMX_TYPE_PVR_PLAYBACK, 1);
  start(element);
  Timeline timeline;
  // More than a node holds: the feed waits for the reader.
  for (unsigned i = 0; timeline.written.size() < 40000; i++) {
    timeline.add(stream::timeline(1, 90000, i) + stream::af_descriptor(5, stream::counting(90)),
                 stream::af_descriptor(7, {1, 2, 3}));
    timeline.add(stream::af_descriptor(6, stream::counting(i % 100)));
    timeline.add({}, {4, 200, 1, 2});  // longer than its field
    timeline.add(stream::timeline(2, 1000, i), {5});
  }
  element.feed(timeline.take());
  EXPECT_TRUE(eventually([&] { return received(element).size() >= timeline.written.size(); }));
  EXPECT_TRUE(received(element) == timeline.written);
  for (const Delivery& delivery : element.deliveries()) EXPECT_LE(delivery.bytes.size(), 16384U);
}

TEST(TemiReader, ReadsNothingBeforeStartUpAndThenAtMostABufferAtATime) {
  Element element(DMX_TYPE_PVR_PLAYBACK, 1);
  Timeline timeline;
  while (timeline.written.size() < 36000)
    timeline.add(stream::af_descriptor(4, stream::counting(98)));
  gst_vantrel_temi_initiate(element.state());
  element.set("enable", TRUE);
  const int fd = element.state()->temi_fd;
  // Room for more than the element asks for, so that more can wait than it reads.
  EXPECT_EQ(qel_device_ioctl(fd, KWRX_DMX_STOP, 0UL), 0);
  EXPECT_EQ(qel_device_ioctl(fd, KWRX_DMX_SET_BUFFER_SIZE, 65536UL), 0);
  EXPECT_EQ(qel_device_ioctl(fd, KWRX_DMX_START, 0UL), 0);
  Trace trace(true);
  element.feed(timeline.take());
  EXPECT_EQ(trace.take(), std::vector<std::string>());
  element.go(GST_STATE_PAUSED);
  ASSERT_TRUE(element.wait_for(3));
  EXPECT_EQ(element.deliveries()[0].bytes.size(), 16384U);
  EXPECT_EQ(element.deliveries()[1].bytes.size(), 16384U);
  EXPECT_TRUE(received(element) == timeline.written);
}

struct Trouble {
  const char* fault;
  const char* message;
};

TEST(TemiReader, LosesNothingToACallThatFails) {
  const Trouble troubles[] = {
      {"qel_temi1 KWRX_DMX_GET_READ_SIZE 1-2 EIO", "temi demux get read size fail"},
      {"qel_temi1 read 1 EIO", nullptr},
      {"qel_temi1 KWRX_DMX_SET_BUFFER_SIZE 1 EIO", "TEMI device KWRX_DMX_SET_BUFFER_SIZE fail"},
      {"qel_temi1 KWRX_DMX_SET_SOURCE 1 EIO", "TEMI device ioctl KWRX_DMX_SET_SOURCE fail"},
  };
  for (const Trouble& row : troubles) {
    SCOPED_TRACE(row.fault);
    Faults faults(row.fault);
    Element element(DMX_TYPE_PVR_PLAYBACK, 1);
    Log log;
    start(element);
    Timeline timeline;
    timeline.add(stream::timeline(1, 2, 3));
    element.feed(timeline.take());
    ASSERT_TRUE(element.wait_for(1));
    EXPECT_TRUE(received(element) == timeline.written);
    EXPECT_TRUE(row.message == nullptr || log.has(row.message));
  }
}

TEST(TemiReader, StartsAgainAfterAnOpenThatFailedAndAfterTeardown) {
  Element element(DMX_TYPE_PVR_PLAYBACK, 6);
  Log log;
  start(element);
  EXPECT_TRUE(log.has("TEMI device ((null)) open fail (22:Invalid argument)"));
  element.set("demux-id", 1U);
  {
    Faults faults("qel_temi1 open 1 EMFILE");
    start(element);
  }
  EXPECT_TRUE(log.has("TEMI device (qel_temi1) open fail (24:Too many open files)"));
  EXPECT_EQ(element.state()->temi_thread.load(), nullptr);
  Timeline timeline;
  for (std::size_t round = 1; round <= 3; round++) {
    start(element);
    timeline.add(stream::timeline(1, 2, 3));
    element.feed(timeline.take());
    ASSERT_TRUE(element.wait_for(round));
    element.go(GST_STATE_READY);
    EXPECT_EQ(open_nodes(1), 0);
  }
  EXPECT_TRUE(received(element) == timeline.written);
}

TEST(TemiReader, GetsNothingFromANodeThatWasEnabledTooEarly) {
  Element element(DMX_TYPE_PVR_PLAYBACK, 1);
  Log log;
  Timeline missed;
  Timeline timeline;
  missed.add(stream::timeline(1, 2, 3));
  timeline.add(stream::timeline(4, 5, 6));
  element.go(GST_STATE_PAUSED);
  element.set("enable", TRUE);
  EXPECT_TRUE(log.has("TEMI device was not opened"));
  gst_vantrel_temi_initiate(element.state());
  element.feed(missed.take());
  EXPECT_TRUE(eventually([&] { return log.has("poll time out"); }));
  element.set("enable", TRUE);
  element.feed(timeline.take());
  ASSERT_TRUE(element.wait_for(1));
  EXPECT_TRUE(received(element) == timeline.written);
}

TEST(TemiReader, MayBeStartedFromSeveralThreadsWhileTheElementGoesDown) {
  within_limit([] {
    Element element(DMX_TYPE_PVR_PLAYBACK, 1);
    std::atomic<bool> done{false};
    std::vector<std::jthread> starters;
    for (int i = 0; i < 2; i++)
      starters.emplace_back([&] {
        while (!done) gst_vantrel_temi_initiate(element.state());
      });
    for (int i = 0; i < 20; i++) {
      element.go(GST_STATE_PAUSED);
      element.go(GST_STATE_READY);
    }
    done = true;
    starters.clear();
    gst_vantrel_destory(element.state());
    EXPECT_EQ(open_nodes(1), 0);
    EXPECT_EQ(element.state()->temi_thread.load(), nullptr);
  });
}

}  // namespace
}  // namespace vantrel::testing
