// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>

#include "common/unique_fd.h"
#include "tests/support/process.h"
#include "tests/support/test_node.h"

namespace {

using namespace vantrel::test;

TEST(Device, NamesOpenOrFailOtherwiseThanPromised) {
  const struct {
    const char* name;
    int error;
  } kRows[] = {
      {"qel_demux0", 0},      {"qel_demux5", 0},
      {"qel_temi0", 0},       {"qel_temi5", 0},
      {"qel_dvr0", 0},        {"qel_dvr5", 0},
      {"vdec0", 0},           {"vdec3", 0},
      {"adec0", 0},           {"adec3", 0},
      {nullptr, EINVAL},      {"", ENOENT},
      {"qel_demux", ENOENT},  {"qel_demux6", ENOENT},
      {"qel_demuxx", ENOENT}, {"/dev/null", ENOENT},
      {"vdec4", ENOENT},      {"qel_demux00", ENOENT},
      {"qel_temi6", ENOENT},  {"qel_dvr:", ENOENT},
      {"adec", ENOENT},       {"/dev/qel/vdec0", ENOENT},
  };
  for (const auto& row : kRows) {
    const std::string label = row.name != nullptr ? row.name : "NULL";
    errno = 0;
    const int fd = qel_device_open(row.name, O_NONBLOCK);
    EXPECT_EQ(get_device_path(row.name) != nullptr, row.error == 0) << label;
    if (row.error != 0) {
      EXPECT_EQ(fd, -1) << label;
      EXPECT_EQ(errno, row.error) << label;
      continue;
    }
    ASSERT_GT(fd, 0) << label;
    EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC) << label;
    EXPECT_EQ(qel_device_close(row.name, fd), 0) << label;
    EXPECT_EQ(fcntl(fd, F_GETFD), -1) << label << ": descriptor left open";
  }
}

TEST(Device, PathsAreMissingOrInvented) {
  EXPECT_STREQ(get_device_path("vdec0"), "/dev/qel/vdec0");
  EXPECT_EQ(get_device_path("vdec0"), get_device_path("vdec0")) << "not static storage";
  errno = 0;
  EXPECT_EQ(get_device_path(nullptr), nullptr);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(get_device_path("vdec9"), nullptr);
  EXPECT_EQ(errno, ENOENT);
}

TEST(Device, OpenReturnsZeroWhereStandardInputIsClosed) {
  const vantrel::UniqueFD saved(dup(0));
  close(0);
  for (const char* name : {"qel_demux0", "vdec0"}) {
    const int fd = qel_device_open(name, O_NONBLOCK);
    EXPECT_GT(fd, 0) << name;
    EXPECT_EQ(fcntl(0, F_GETFD), -1) << name << ": 0 is taken";
    EXPECT_EQ(qel_device_close(name, fd), 0) << name;
  }
  if (saved.valid()) dup2(saved.get(), 0);
}

TEST(Device, NameDecidesWhatIsClosed) {
  const int fd = qel_device_open("qel_demux0", O_NONBLOCK);
  EXPECT_EQ(qel_device_close(nullptr, fd), 0) << "the descriptor decides, not the name";
  EXPECT_EQ(qel_device_close("qel_demux0", fd), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST(Device, ForeignDescriptorsMissTheSystemCallOrAreClosed) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const vantrel::UniqueFD reader(ends[0]);
  const vantrel::UniqueFD writer(ends[1]);
  ASSERT_EQ(write(writer.get(), "abc", 3), 3);
  int waiting = 0;
  EXPECT_EQ(qel_device_ioctl(reader.get(), FIONREAD, &waiting), 0);
  EXPECT_EQ(waiting, 3);
  char data[8] = {};
  EXPECT_EQ(qel_device_read(reader.get(), data, sizeof data), 3);
  EXPECT_STREQ(data, "abc");
  errno = 0;
  EXPECT_EQ(qel_device_ioctl(reader.get(), KWRX_DMX_STOP, 0), -1);
  EXPECT_EQ(errno, ENOTTY);
  EXPECT_EQ(qel_device_read(-1, data, sizeof data), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(qel_device_close(nullptr, -1), -1);
  EXPECT_EQ(qel_device_close("qel_demux0", reader.get()), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_NE(fcntl(reader.get(), F_GETFD), -1);
}

TEST(Device, CloseLeavesOtherThreadsInTheirReads) {
  for (int round = 0; round < 100; ++round) {
    TestNode node("qel_demux0", O_RDWR);
    ASSERT_EQ(node.section(100), 0);
    const auto read = [&node] {
      char data[64];
      return qel_device_read(node.fd(), data, sizeof data) < 0 ? errno : -1;
    };
    Background<int> readers[3] = {Background(read), Background(read), Background(read)};
    for (Background<int>& reader : readers) EXPECT_TRUE(reader.waits());
    node.close();
    for (Background<int>& reader : readers) EXPECT_EQ(reader.result(), EBADF);
    EXPECT_EQ(fcntl(node.fd(), F_GETFD), -1) << "descriptor left open";
  }
}

}  // namespace
