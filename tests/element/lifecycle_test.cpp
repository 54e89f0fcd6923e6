// SPDX-License-Identifier: LGPL-2.1-or-later
#include <fcntl.h>
#include <gtest/gtest.h>
#include <qel/device.h>
#include <qel/receiver.h>
#include <sys/sem.h>

#include <thread>

#include "plugin/gstvantrel.h"
#include "plugin/lifecycle.h"
#include "readers/temi_reader.h"
#include "tests/element/harness.h"
#include "tests/element/refusals.h"
#include "tests/support/test_node.h"

namespace vantrel::testing {
namespace {

TEST(RunState, CyclesLeaveNothingBehind) {
  Element element(DMX_TYPE_LIVE);
  element.set("videodec-device", "vdec0");
  const std::size_t semaphores = semaphore_sets();
  const auto growth = growth_by(50, 1000, [&](guint i) {
    element.set("vpid", 100 + i % 7);
    element.set("pids", "audio:2:9/pcr:3:0/subtitle:4:29");
    element.add(0x12, 0x4E);
    element.go(i % 2 != 0 ? GST_STATE_PLAYING : GST_STATE_PAUSED);
    element.add(0x11, 0x42);
    element.go(i % 3 != 0 ? GST_STATE_READY : GST_STATE_NULL);
  });
  EXPECT_EQ(growth.descriptors, 0);
  EXPECT_LT(growth.bytes, 8 << 20);
  EXPECT_EQ(semaphore_sets(), semaphores);
  EXPECT_EQ(g_list_length(element.get()->srcpads), 3U);
}

TEST(RunState, SurvivesChangesFromSeveralThreads) {
  Element element(DMX_TYPE_LIVE);
  const GstState states[] = {GST_STATE_NULL, GST_STATE_READY, GST_STATE_PAUSED, GST_STATE_PLAYING};
  {
    std::vector<std::jthread> threads;
    for (unsigned t = 0; t < 3; t++)
      threads.emplace_back([&, t] {
        for (unsigned i = 0; i < 60; i++) {
          gst_element_set_state(element.get(), states[(i * 7 + t * 3) % 4]);
          element.set("apid", 100 + i);
        }
      });
  }
  element.go(GST_STATE_NULL);
  EXPECT_EQ(element.state()->userdata_thread, nullptr);
}

TEST(Finalize, ClosesWhatNoTeardownHasSeen) {
  const std::size_t descriptors = open_descriptors();
  {
    Element element(DMX_TYPE_LIVE);
    element.go(GST_STATE_PAUSED);
    element.go(GST_STATE_NULL);
    element.set("apid", 100U);  // gets its node at once, with no start-up to come
    element.add(0x10, 0x40);
    EXPECT_EQ(open_nodes(0), 2);
  }
  EXPECT_EQ(open_nodes(0), 0);
  EXPECT_EQ(open_descriptors(), descriptors);
}

bool semaphore_exists(gint id) { return semctl(id, 0, GETVAL) != -1; }

/// An element without an owner but the caller.
GstVantrel* new_element() {
  auto* element = static_cast<GstVantrel*>(g_object_new(gst_vantrel_get_type(), nullptr));
  return static_cast<GstVantrel*>(gst_object_ref_sink(element));
}

TEST(Dispose, EndsReadersThatNoStateChangeStarted) {
  const std::size_t descriptors = open_descriptors();
  GstVantrel* timeline_only = new_element();
  gst_vantrel_temi_initiate(timeline_only);
  const gint temi_sem = timeline_only->temi_sem;
  gst_object_unref(timeline_only);
  EXPECT_FALSE(semaphore_exists(temi_sem));
  GstVantrel* by_hand = new_element();
  gst_vantrel_initiate(by_hand);
  const gint userdata_sem = by_hand->userdata_sem;
  gst_object_unref(by_hand);
  EXPECT_FALSE(semaphore_exists(userdata_sem));
  EXPECT_EQ(open_descriptors(), descriptors);
}

TEST(Dispose, OnAReaderThreadLeavesTheJoiningToAnother) {
  GstVantrel* element = new_element();
  gpointer handle = nullptr;
  g_signal_emit_by_name(element, "add-filter", 0x50U, 0x42U, 0U, nullptr, nullptr, 0U, FALSE, FALSE,
                        nullptr, &handle);
  const auto drop = +[](GstElement* self, guint, guint, gpointer, guint, gpointer, gpointer) {
    gst_object_unref(self);
  };
  g_signal_connect(element, "section-upload", G_CALLBACK(drop), nullptr);
  gst_vantrel_initiate(element);
  const gint pesdata_sem = element->pesdata_sem;  // removed last
  stream::Multiplex multiplex;
  const stream::Bytes bytes = multiplex.sections(0x50, {stream::section(0x42, 1, 60)});
  // The packet of an earlier run would make this one a repeated one.
  test::flush(0);
  EXPECT_EQ(qel_receiver_feed(0, DMX_IN_FRONTEND, bytes.data(), bytes.size()), 0);
  EXPECT_TRUE(eventually([&] { return !semaphore_exists(pesdata_sem); }));
  EXPECT_EQ(open_nodes(0), 0);
}

TEST(Temi, IsNotSwitchedOnANodeThatTeardownHasClosed) {
  Element element(DMX_TYPE_LIVE, 1);
  Trace trace;
  std::atomic<bool> done{false};
  std::jthread application([&] {
    for (gboolean on = TRUE; !done; on = !on) element.set("enable", on);
  });
  for (int i = 0; i < 100; i++) {
    gst_vantrel_temi_initiate(element.state());
    gst_vantrel_destory(element.state());
    // Takes the number that the TEMI node had.
    qel_device_close("qel_demux2", qel_device_open("qel_demux2", O_RDWR));
  }
  done = true;
  application.join();
  for (const std::string& line : trace.take("ioctl"))
    EXPECT_TRUE(line.find("<qel_temi1>") != line.npos && line.find("EBADF") == line.npos) << line;
}

}  // namespace
}  // namespace vantrel::testing
