// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gtest/gtest.h>

#include "tests/element/harness.h"
#include "tests/support/ts_builder.h"

namespace vantrel::testing {
namespace {

using Lines = std::vector<std::string>;

/// 16 bytes as the trace prints them.
std::string hex(const std::string& prefix) { return prefix + std::string(32 - prefix.size(), '0'); }

TEST(SectionRegistry, QueuesThe97thAndPromotesInOrder) {
  Element element;
  element.go(GST_STATE_PLAYING);
  std::vector<gpointer> handles;
  for (guint i = 0; i < 98; i++) handles.push_back(element.add(100 + i, 0x42));
  EXPECT_EQ(open_nodes(0), 96);
  Trace trace;
  {
    Faults faults("qel_demux0 open 1 EMFILE");  // the 97th cannot start yet
    element.remove(handles[5]);
  }
  EXPECT_EQ(open_nodes(0), 95);
  element.remove(handles[6]);
  EXPECT_EQ(open_nodes(0), 96);
  const Lines started = trace.take("SET_FILTER");
  ASSERT_EQ(started.size(), 2U);
  EXPECT_NE(started[0].find("pid=196,"), std::string::npos);
  EXPECT_NE(started[1].find("pid=197,"), std::string::npos);
  stream::Multiplex multiplex;
  element.feed(stream::text(multiplex.sections(197, {stream::section(0x42, 1, 30)})));
  EXPECT_TRUE(element.wait_for(1));
  EXPECT_EQ(element.deliveries()[0].handle, handles[97]);
}

TEST(SectionRegistry, FreesAWaitingFilterWithoutTouchingADevice) {
  Element element;
  std::vector<gpointer> handles;
  for (guint i = 0; i < 97; i++) handles.push_back(element.add(100, i));
  Trace trace;
  Log log;
  element.remove(handles.back());
  EXPECT_EQ(trace.take("ioctl"), Lines{});
  EXPECT_TRUE(log.has("[GST_VANTREL]gst_vantrel_free_section_filter : remove from waiting list"));
}

TEST(SectionRegistry, IgnoresHandlesThatAreNotItsOwn) {
  Element element;
  Element other;
  gpointer stale = element.add(18, 0x4E);
  element.remove(stale);
  gpointer foreign = other.add(18, 0x4E);
  Log log;
  for (gpointer handle : {stale, foreign, static_cast<gpointer>(&element)}) element.remove(handle);
  EXPECT_EQ(
      log.count("[GST_VANTREL]gst_vantrel_free_section_filter : not found, may be stoped already!"),
      3);
  element.remove(nullptr);
  EXPECT_TRUE(
      log.has("[GST_VANTREL]gst_vantrel_free_section_filter demuxer->section_handler : null!!!!!"));
  EXPECT_EQ(open_nodes(0), 1);
}

TEST(SectionRegistry, WorksThroughPropertiesToo) {
  Element element;
  element.go(GST_STATE_PLAYING);
  guint8 filter[] = {0x42, 0, 0, 0, 7};
  guint8 mask[] = {0xFF, 0, 0, 0xFF, 0xFF};
  g_object_set(element.get(), "section-pid", 17U, "filter", filter, "mask", mask, "filter-index",
               5U, "mask-index", 5U, "section-check-crc", FALSE, "section-check-version", FALSE,
               nullptr);
  Trace trace;
  element.set("section-filtering", TRUE);
  element.set("section-filtering", TRUE);  // by table id: the pattern's length is used up
  const Lines requests = trace.take("SET_FILTER");
  ASSERT_EQ(requests.size(), 2U);
  EXPECT_NE(requests[0].find("filter=" + hex("420007")), std::string::npos);
  EXPECT_NE(requests[1].find("filter=" + hex("00")), std::string::npos);
  stream::Multiplex multiplex;
  element.feed(stream::text(multiplex.sections(17, {stream::section(0x42, 7, 30)})));
  ASSERT_TRUE(element.wait_for(1));
  element.set("sec-handler", element.deliveries()[0].handle);
  element.set("section-filtering", FALSE);
  EXPECT_EQ(open_nodes(0), 1);
}

TEST(SectionRegistry, TenThousandPairsLeaveNothingBehind) {
  Element element;
  element.go(GST_STATE_PLAYING);
  const auto growth = growth_by(100, 10000, [&](guint) { element.remove(element.add(18, 0x4E)); });
  EXPECT_EQ(growth.descriptors, 0);
  EXPECT_LT(growth.bytes, 4 << 20);
}

TEST(SectionRegistry, ManyIdleFiltersCostKilobytes) {
  Element element;
  element.go(GST_STATE_PLAYING);
  element.remove(element.add(18, 0x4E));
  const std::size_t memory = resident_bytes();
  for (guint i = 0; i < 96; i++) element.add(18, i);
  EXPECT_LT(resident_bytes(), memory + 4 * 1024 * 1024);
}

}  // namespace
}  // namespace vantrel::testing
