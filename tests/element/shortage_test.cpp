// SPDX-License-Identifier: LGPL-2.1-or-later
//
// What the element does where the system has no thread, no semaphore, no poll
// set left for it, or nobody to read what it records: whatever it is, teardown
// ends and gives everything back.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <qel/device.h>

#include <future>
#include <thread>

#include "readers/temi_reader.h"
#include "tests/element/decoder.h"
#include "tests/element/harness.h"
#include "tests/element/refusals.h"
#include "tests/support/ts_builder.h"

namespace vantrel::testing {
namespace {

using stream::operator+=;

constexpr guint kShortSections = 0x50;
constexpr guint kShortSubtitles = 0x51;

/// A second of a stream with something for every reader, and more of it than
/// their nodes hold.
std::string stream_for_all() {
  stream::Multiplex mux;
  stream::Bytes packets;
  for (unsigned i = 0; i < 400; i++) {
    packets +=
        mux.sections(kShortSections, {stream::section(0x42, static_cast<std::uint16_t>(i), 900)});
    packets += mux.unit(kShortSubtitles, stream::pes(0xBD, 900));
    packets +=
        mux.packet(0x99, {}, {.af_descriptors = stream::af_descriptor(4, stream::counting(150))});
  }
  return {packets.begin(), packets.end()};
}

struct Shortage {
  const char* refused;
  const char* message;  // NULL: nothing is missing but the name in the system's list
};

const Shortage kShortages[] = {
    {"vantrel-userdata", "demuxer_userdata_thread create fail!\n"},
    {"vantrel-pesdata", "demuxer_pesdata_thread create fail!\n"},
    {"temi-data", "temi_thread create fail"},
    {"gst_poll_new", "Failed to create a GstPoll"},
    {"semget", nullptr},
};

void expect_deliveries_of_all(Element& element) {
  EXPECT_TRUE(eventually([&] {
    const auto all = element.deliveries();
    const auto has = [&](guint pid) {
      return std::any_of(all.begin(), all.end(), [&](const auto& each) { return each.pid == pid; });
    };
    return has(kShortSections) && has(kShortSubtitles) && has(0);
  }));
}

/// Starts everything up, in PAUSED or PLAYING.
void start(Element& element, GstState state) {
  element.add(kShortSections, 0x42);
  element.set("sub-pid", static_cast<gint>(kShortSubtitles));
  element.go(GST_STATE_PAUSED);
  gst_vantrel_temi_initiate(element.state());
  element.set("enable", TRUE);
  element.go(state);
}

void start_and_end(const Shortage& row, GstState state) {
  Element element;
  Upstream upstream(element.get());
  Log log;
  system_refuses(row.refused);
  start(element, state);
  EXPECT_TRUE(row.message == nullptr || log.count(row.message) == 1);
  if (std::string_view(row.refused) == "semget") {
    EXPECT_EQ(element.state()->userdata_sem, -1);
  }
  const std::string packets = stream_for_all();
  auto push = std::async(std::launch::async, [&] {
    upstream.start_of_stream();
    return upstream.push(packets);
  });
  // A full node that nobody reads holds the feed, and no longer than this.
  const bool all_read = row.message == nullptr && state == GST_STATE_PLAYING;
  if (all_read) {
    EXPECT_EQ(push.get(), GST_FLOW_OK);
  }
  if (all_read) expect_deliveries_of_all(element);
  element.go(GST_STATE_READY);
  if (!all_read) push.wait();
  system_refuses("");
  EXPECT_EQ(element.state()->temi_fd.load(), -1);
  start(element, GST_STATE_PLAYING);
  element.feed(packets);
  expect_deliveries_of_all(element);
}

TEST(Shortage, LeavesTeardownToEndAndTheNextStartToWork) {
  start_and_end({"", nullptr}, GST_STATE_PLAYING);  // what is made once and kept
  const std::size_t descriptors = open_descriptors();
  const std::size_t semaphores = semaphore_sets();
  for (const Shortage& row : kShortages)
    for (const GstState state : {GST_STATE_PAUSED, GST_STATE_PLAYING}) {
      SCOPED_TRACE(row.refused);
      within_limit([&] { start_and_end(row, state); });
      EXPECT_EQ(open_nodes(0), 0);
      EXPECT_EQ(open_descriptors(), descriptors);
      EXPECT_EQ(semaphore_sets(), semaphores);
    }
}

/// With the record node closed nothing waits for it; open and full, teardown
/// ends the wait.
TEST(Shortage, OfReadersOfARecordingHoldsNothingForGood) {
  for (const bool open : {false, true})
    within_limit([open] {
      Element element(DMX_TYPE_ATV_RECORD);
      Upstream upstream(element.get());
      const int record = open ? qel_device_open("qel_dvr0", O_RDONLY | O_NONBLOCK) : -1;
      element.set("vpid", kShortSubtitles);
      element.go(GST_STATE_PLAYING);
      upstream.start_of_stream();
      const std::string packets = stream_for_all();
      auto push = std::async(std::launch::async, [&] {
        GstFlowReturn flow = GST_FLOW_OK;
        for (int i = 0; i < 100 && flow == GST_FLOW_OK; i++) flow = upstream.push(packets);
        return flow;
      });
      if (!open) {
        EXPECT_EQ(push.get(), GST_FLOW_OK);
      }
      element.go(GST_STATE_NULL);
      if (open) {
        EXPECT_EQ(push.get(), GST_FLOW_FLUSHING);
      }
      if (open) qel_device_close("qel_dvr0", record);
    });
}

}  // namespace
}  // namespace vantrel::testing
