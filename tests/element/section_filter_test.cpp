// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gtest/gtest.h>

#include "tests/element/harness.h"
#include "tests/support/ts_builder.h"

namespace vantrel::testing {
namespace {

using Lines = std::vector<std::string>;

/// 16 bytes as the trace prints them.
std::string hex(const std::string& prefix) { return prefix + std::string(32 - prefix.size(), '0'); }

struct RequestCase {
  const char* name;
  std::function<gpointer(Element&)> add;
  std::string filter;
  std::string mask;
  std::string mode;
  int flags;
};

TEST(SectionRequest, CarriesTableIdExtensionAndPatternInTheirPlaces) {
  const std::string fifteen = stream::text(stream::counting(15, 1));
  const RequestCase cases[] = {
      {"table id", [](Element& e) { return e.add(18, 0x4E); }, "4e", "ff", "", 4},
      {"CRC", [](Element& e) { return e.add(18, 0x4E, false, true); }, "4e", "ff", "", 5},
      {"any table id", [](Element& e) { return e.add(18, 0x100); }, "", "", "", 4},
      {"extension", [](Element& e) { return e.add(18, 0x42, false, false, 0x1234); }, "421234",
       "ffffff", "", 4},
      {"extension of any", [](Element& e) { return e.add(18, 0xFFFF, false, false, 0x1234); },
       "001234", "00ffff", "", 4},
      {"16 bits count", [](Element& e) { return e.add(0x10012, 0x1004E, false, false, 0x10000); },
       "4e", "ff", "", 4},
      {"pattern of 2",
       [](Element& e) { return e.add_pattern(18, "\x42\x99", "\xff\x99", "\x01\x99"); }, "42", "ff",
       "01", 4},
      {"pattern without a mode",
       [](Element& e) { return e.add_pattern(18, "\x42\x99", "\xff\x99", std::nullopt); }, "42",
       "ff", "", 4},
      {"pattern of 15", [&](Element& e) { return e.add_pattern(18, fifteen, fifteen, fifteen); },
       "010405060708090a0b0c0d0e0f", "010405060708090a0b0c0d0e0f", "010405060708090a0b0c0d0e0f", 4},
  };
  for (const RequestCase& row : cases) {
    SCOPED_TRACE(row.name);
    Element element(DMX_TYPE_LIVE, 3);
    element.set("dmx-buf-size", 65536U);
    Trace trace;
    gpointer handle = row.add(element);
    EXPECT_NE(handle, nullptr);
    EXPECT_EQ(trace.take(),
              (Lines{"open(\"qel_demux3\", 0x802) = #1",
                     "ioctl(#1<qel_demux3>, KWRX_DMX_SET_SOURCE, [0]) = 0",
                     "ioctl(#1<qel_demux3>, KWRX_DMX_SET_BUFFER_SIZE, 65536) = 0",
                     "ioctl(#1<qel_demux3>, KWRX_DMX_SET_FILTER, {pid=18, filter=" +
                         hex(row.filter) + ", mask=" + hex(row.mask) + ", mode=" + hex(row.mode) +
                         ", timeout=0, flags=" + std::to_string(row.flags) + "}) = 0"}));
    element.remove(handle);
    EXPECT_EQ(trace.take(),
              (Lines{"prctl(666, \"[BEGIN]PER_gstvantrel::gst_vantrel_remove_filter\", 48)",
                     "ioctl(#1<qel_demux3>, KWRX_DMX_STOP) = 0", "close(\"qel_demux3\", #1) = 0",
                     "prctl(666, \"[END]PER_gstvantrel::gst_vantrel_remove_filter\", 46)"}));
  }
}

TEST(SectionRequest, IsLoggedStepByStep) {
  Element element(DMX_TYPE_LIVE);
  element.go(GST_STATE_PLAYING);
  Log log;
  element.remove(element.add(0x10012, 0x1004E, true, true));
  EXPECT_EQ(
      log.take({"gst_vantrel_add_filter", "gst_vantrel_create_section_filter",
                "vantrel_section_set_bypass", "vantrel_start_section_filter",
                "vantrel_update_poll_section_fds", "gst_vantrel_remove_filter",
                "gst_vantrel_free_section_filter", "vantrel_remove_section_filter"}),
      (Lines{
          "3 gst_vantrel_add_filter: gst_poll_set_flushing (usrdata_poll) : TRUE",
          "3 gst_vantrel_create_section_filter: [PERF_CHECK][BEGIN]",
          "3 gst_vantrel_create_section_filter: malloc ptr = PTR",
          "3 vantrel_section_set_bypass: [PERF_CHECK][BEGIN]",
          "3 vantrel_section_set_bypass: vantrel_section_set_bypass KWRX_DMX_SET_SOURCE "
          "source_input: 0!!!\n\n",
          "3 vantrel_section_set_bypass: [PERF_CHECK][END]",
          "4 vantrel_start_section_filter: [GST_VANTREL][0] pid: 18, table_id: 78, mask: 255, "
          "ver_chk: 1, crc_chk: 1",
          "3 vantrel_start_section_filter: [GST_VANTREL]vantrel_start_section_filter "
          "success,buf_size: 131072!!",
          "3 vantrel_update_poll_section_fds: [GST_VANTREL]poll fd N",
          "3 gst_vantrel_create_section_filter: [PERF_CHECK][END]",
          "4 gst_vantrel_add_filter: add current filter s_handler: PTR, pid:18, tid:78, "
          "ver_check:1, crc_check: 1",
          "3 gst_vantrel_add_filter: gst_poll_set_flushing (usrdata_poll) : FLASE",
          "3 gst_vantrel_remove_filter: gst_poll_set_flushing (usrdata_poll) : TRUE",
          "3 gst_vantrel_remove_filter: remove current filter section_handler: PTR",
          "3 gst_vantrel_free_section_filter: [PERF_CHECK][BEGIN]",
          "3 gst_vantrel_free_section_filter: s: PTR, buf: PTR",
          "3 vantrel_remove_section_filter: [GST_VANTREL][PTR][0]vantrel_remove_section_filter: "
          "pid 18, tid 78",
          "3 gst_vantrel_free_section_filter: free ptr = PTR",
          "3 gst_vantrel_free_section_filter: [GST_VANTREL]gst_vantrel_free_section_filter : "
          "remove from running list",
          "3 gst_vantrel_free_section_filter: [PERF_CHECK][END]",
          "3 gst_vantrel_remove_filter: gst_poll_set_flushing (usrdata_poll) : FLASE",
      }));
}

struct FailureCase {
  const char* fault;
  const char* message;
  bool started;
};

TEST(SectionRequest, ThatFailsLeavesNothingOpen) {
  const FailureCase cases[] = {
      {"qel_demux0 open 1 EMFILE", "demux device qel_demux0 open failed (24:Too many open files)",
       false},
      {"qel_demux0 KWRX_DMX_SET_SOURCE 1 EIO", nullptr, true},
      {"qel_demux0 KWRX_DMX_SET_BUFFER_SIZE 1 ENOMEM", "error setting PES filter buffer size",
       true},
      {"qel_demux0 KWRX_DMX_SET_FILTER 1 EINVAL", "[GST_VANTREL]ioctl KWRX_DMX_SET_FILTER failed",
       false},
  };
  for (const FailureCase& row : cases) {
    SCOPED_TRACE(row.fault);
    Element element;
    Faults faults(row.fault);
    Log log;
    gpointer handle = element.add(18, 0x4E);
    EXPECT_EQ(handle != nullptr, row.started);
    EXPECT_TRUE(row.message == nullptr || log.has(row.message));
    EXPECT_EQ(open_nodes(0), row.started ? 1 : 0);
    EXPECT_NE(element.add(18, 0x4F), nullptr);
  }
  Element element;
  Log log;
  const std::string sixteen(16, '\x42');
  EXPECT_EQ(element.add_pattern(18, sixteen, sixteen, sixteen), nullptr);
  EXPECT_TRUE(log.has("[GST_VANTREL]too many filters in one setting!!"));
  EXPECT_EQ(element.add_pattern(18, "B", std::nullopt, "B"), nullptr);
  EXPECT_EQ(element.add_pattern(18, std::nullopt, "B", "B"), nullptr);
  EXPECT_EQ(open_nodes(0), 0);
  Element without_node(DMX_TYPE_LIVE, 6);
  EXPECT_EQ(without_node.add(18, 0x4E), nullptr);
}

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
  for (int i = 0; i < 100; i++) element.remove(element.add(18, 0x4E));
  const std::size_t descriptors = open_descriptors();
  const std::size_t memory = resident_bytes();
  for (int i = 0; i < 10000; i++) element.remove(element.add(18, 0x4E));
  EXPECT_EQ(open_descriptors(), descriptors);
  EXPECT_LT(resident_bytes(), memory + 4 * 1024 * 1024);
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
