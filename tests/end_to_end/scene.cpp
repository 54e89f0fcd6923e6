// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tests/end_to_end/scene.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <qel/device.h>
#include <qel/receiver.h>

#include <filesystem>

#include "tools/core/make_stream.h"

namespace vantrel::testing {

const std::string& own_stream() {
  static const std::string bytes = [] {
    const std::string path = ::testing::TempDir() + "own-" + std::to_string(getpid()) + ".ts";
    tools::make_stream(path);
    std::string made = stream::load(path);
    std::filesystem::remove(path);
    return made;
  }();
  return bytes;
}

Reader::Reader(const char* node) : node_(node), fd_(qel_device_open(node, O_RDONLY | O_NONBLOCK)) {
  EXPECT_GT(fd_, 0) << node;
}

Reader::~Reader() { qel_device_close(node_, fd_); }

std::string Reader::read() {
  std::string bytes;
  std::string buffer(1 << 20, '\0');
  ssize_t count = 0;
  while ((count = qel_device_read(fd_, buffer.data(), buffer.size())) > 0)
    bytes.append(buffer, 0, static_cast<std::size_t>(count));
  if (count < 0) {
    EXPECT_EQ(errno, EAGAIN) << node_;
  }
  return bytes;
}

bool Reader::at_end() {
  char byte = 0;
  return qel_device_read(fd_, &byte, 1) == 0;
}

}  // namespace vantrel::testing
