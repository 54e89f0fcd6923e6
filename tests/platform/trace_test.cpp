// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gtest/gtest.h>
#include <qel/marker.h>
#include <qel/receiver.h>
#include <qel/trace.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <mutex>
#include <regex>
#include <vector>

#include "tests/support/process.h"
#include "tests/support/test_node.h"

namespace {

using namespace vantrel::test;

std::string number(const TestNode& node) { return std::to_string(node.fd()); }

/// Collects traced calls, without time and thread, while it lives.
class Trace {
 public:
  explicit Trace(bool reads = false) { qel_trace_set_callback(collect, this, reads); }
  ~Trace() { qel_trace_set_callback(nullptr, nullptr, 0); }

  std::string take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(lines_, {});
  }

 private:
  static void collect(const char* line, void* user_data) {
    auto* self = static_cast<Trace*>(user_data);
    const std::lock_guard lock(self->mutex_);
    static const std::regex prefix("^\\d+\\.\\d{6} (\\d+) ");
    std::smatch match;
    const std::string text = line;
    ASSERT_TRUE(std::regex_search(text, match, prefix)) << text;
    EXPECT_EQ(match[1], std::to_string(gettid()));
    self->lines_ += match.suffix().str() + "\n";
  }

  std::mutex mutex_;
  std::string lines_;  // guarded by mutex_
};

TEST(Trace, OpenCloseAndPathPrintOtherwise) {
  Trace trace;
  const int fd = qel_device_open("qel_demux0", 0x800);
  const std::string number = std::to_string(fd);
  EXPECT_EQ(trace.take(), "open(\"qel_demux0\", 0x800) = " + number + "\n");
  qel_device_close("qel_demux0", fd);
  EXPECT_EQ(trace.take(), "close(\"qel_demux0\", " + number + ") = 0\n");
  qel_device_close(nullptr, fd);
  EXPECT_EQ(trace.take(), "close(NULL, " + number + ") = -1 EBADF\n");
  qel_device_open(nullptr, 1);
  EXPECT_EQ(trace.take(), "open(NULL, 0x1) = -1 EINVAL\n");
  qel_device_open("no\n\"such\\", 0);
  EXPECT_EQ(trace.take(), "open(\"no\\x0a\\\"such\\\\\", 0) = -1 ENOENT\n");
  get_device_path("vdec0");
  EXPECT_EQ(trace.take(), "path(\"vdec0\") = \"/dev/qel/vdec0\"\n");
  get_device_path(nullptr);
  EXPECT_EQ(trace.take(), "path(NULL) = -1 EINVAL\n");
}

TEST(Trace, RequestsPrintOtherwise) {
  dmx_pes_filter_params pes{};
  pes.pid = 4129;
  pes.pes_type = DMX_PES_VIDEO0;
  pes.flags = DMX_IMMEDIATE_START;
  dmx_sct_filter_params section{};
  section.pid = 18;
  section.filter.filter[0] = 0x4e;
  section.filter.mask[0] = 0xff;
  section.filter.mode[15] = 0x0a;
  section.flags = 5;
  std::int32_t source = -2;
  dmx_read_size size{};
  dmx_stc stc{1, 0, 0};
  dmx_pes_type_query query{"/dev/qel/vdec0", 0};
  dmx_pes_type_query endless{};
  std::memset(endless.device_path, 'x', sizeof endless.device_path);
  const struct {
    unsigned long request;
    void* argument;
    std::string text;
  } kRows[] = {
      {KWRX_DMX_START, nullptr, "KWRX_DMX_START) = -1 EINVAL"},
      {KWRX_DMX_STOP, nullptr, "KWRX_DMX_STOP) = 0"},
      {KWRX_DMX_SET_SOURCE, &source, "KWRX_DMX_SET_SOURCE, [-2]) = 0"},
      {KWRX_DMX_SET_SOURCE, reinterpret_cast<void*>(16), "KWRX_DMX_SET_SOURCE, 0x10) = -1 EFAULT"},
      {KWRX_DMX_SET_BUFFER_SIZE, reinterpret_cast<void*>(131072),
       "KWRX_DMX_SET_BUFFER_SIZE, 131072) = 0"},
      {KWRX_DMX_GET_PESTYPE, &query,
       "KWRX_DMX_GET_PESTYPE, {device_path=\"/dev/qel/vdec0\"}) = 0 => {pes_type=1}"},
      {KWRX_DMX_GET_PESTYPE, &endless,
       "KWRX_DMX_GET_PESTYPE, {device_path=\"" + std::string(sizeof endless.device_path, 'x') +
           "\"}) = -1 EINVAL"},
      {KWRX_DMX_SET_PES_FILTER, &pes,
       "KWRX_DMX_SET_PES_FILTER, {pid=4129, input=0, output=0, pes_type=1, flags=4}) = 0"},
      {KWRX_DMX_SET_FILTER, &section,
       "KWRX_DMX_SET_FILTER, {pid=18, filter=4e000000000000000000000000000000, "
       "mask=ff000000000000000000000000000000, mode=0000000000000000000000000000000a, "
       "timeout=0, flags=5}) = 0"},
      {KWRX_DMX_SET_FILTER, nullptr, "KWRX_DMX_SET_FILTER, NULL) = -1 EFAULT"},
      {KWRX_DMX_GET_READ_SIZE, &size, "KWRX_DMX_GET_READ_SIZE) = 0 => {size=0}"},
      {KWRX_DMX_GET_STC, &stc, "KWRX_DMX_GET_STC, {num=1}) = -1 EAGAIN"},
      {0x6f63, nullptr, "0x6f63) = -1 ENOTTY"},
  };
  Trace trace;
  const TestNode node("qel_demux0");
  trace.take();
  for (const auto& row : kRows) {
    node.control(row.request, row.argument);
    EXPECT_EQ(trace.take(), "ioctl(" + number(node) + "<qel_demux0>, " + row.text + "\n");
  }
}

TEST(Trace, StcPrintsOtherwise) {
  const TestNode node("qel_demux3");
  ASSERT_EQ(node.pes(256, DMX_OUT_DECODER, DMX_PES_PCR1, DMX_IN_FRONTEND), 0);
  const stream::Bytes packet = stream::Multiplex().packet(256, {}, {.pcr = 27000000});
  ASSERT_EQ(qel_receiver_feed(3, DMX_IN_FRONTEND, packet.data(), packet.size()), 0);
  Trace trace;
  dmx_stc stc{1, 0, 0};
  ASSERT_EQ(node.control(KWRX_DMX_GET_STC, &stc), 0);
  EXPECT_EQ(trace.take(), "ioctl(" + number(node) + "<qel_demux3>, KWRX_DMX_GET_STC, {num=1})" +
                              " = 0 => {num=1, base=300, stc=" + std::to_string(stc.stc) + "}\n");
}

TEST(Trace, ReadsAreTracedUnasked) {
  TestNode node("qel_demux0");
  {
    Trace trace;
    node.read(16);
    EXPECT_EQ(trace.take(), "");
  }
  Trace trace(true);
  ASSERT_EQ(node.section(100), 0);
  trace.take();
  node.read(16);
  EXPECT_EQ(trace.take(), "read(" + number(node) + "<qel_demux0>, 16) = -1 EAGAIN\n");
}

TEST(Trace, MarkerIsNotTracedOrChangesErrno) {
  Trace trace;
  errno = EOVERFLOW;
  qel_marker("[BEGIN]PER_gstvantrel::destory");
  EXPECT_EQ(errno, EOVERFLOW);
  EXPECT_EQ(trace.take(), "prctl(666, \"[BEGIN]PER_gstvantrel::destory\", 30)\n");
}

// The environment is read once in a process: each of these has its own.
class TraceEnvironment : public testing::Test {
 protected:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

[[noreturn]] void open_and_read(const char* trace, const char* reads) {
  setenv("QEL_TRACE", trace, 1);
  setenv("QEL_TRACE_READS", reads, 1);
  const int fd = qel_device_open("qel_demux0", O_NONBLOCK);
  char data[4];
  qel_device_read(fd, data, sizeof data);
  _exit(0);  // nothing is flushed here that was not before
}

TEST_F(TraceEnvironment, StandardErrorGetsNothing) {
  EXPECT_EXIT(open_and_read("-", "1"), testing::ExitedWithCode(0),
              "open\\(\"qel_demux0\", 0x800\\) = .*\n.*read\\(");
}

TEST_F(TraceEnvironment, FileGetsNothingOrReadsUnasked) {
  const std::string path = own_file("vantrel-trace");
  EXPECT_EXIT(open_and_read(path.c_str(), "0"), testing::ExitedWithCode(0), "");
  std::ifstream file(path);
  const std::string text((std::istreambuf_iterator<char>(file)), {});
  EXPECT_TRUE(std::regex_match(
      text, std::regex("\\d+\\.\\d{6} \\d+ open\\(\"qel_demux0\", 0x800\\) = \\d+\n")))
      << text;
  unlink(path.c_str());
}

}  // namespace
