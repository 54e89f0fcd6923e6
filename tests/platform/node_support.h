// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <qel/device.h>
#include <qel/dmx.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

#include "tests/support/ts_builder.h"

namespace vantrel::test {

using stream::Bytes;

constexpr std::uint8_t kTableId = 0x42;

inline Bytes null_packets(std::size_t count) {
  stream::Multiplex multiplex;
  Bytes bytes;
  for (std::size_t i = 0; i < count; ++i) {
    const Bytes packet = multiplex.packet(0x1fff, stream::counting(184));
    bytes.insert(bytes.end(), packet.begin(), packet.end());
  }
  return bytes;
}

/// Packets of sections of `size` bytes each, one section a packet.
inline Bytes section_packets(stream::Multiplex& multiplex, unsigned pid, std::size_t size,
                             unsigned count) {
  Bytes bytes;
  for (unsigned i = 0; i < count; ++i) {
    const Bytes packet = multiplex.sections(pid, {stream::short_section(kTableId, size)});
    bytes.insert(bytes.end(), packet.begin(), packet.end());
  }
  return bytes;
}

/// Waits for a condition that is certain to come; false is a failed test.
inline bool eventually(const std::function<bool()>& condition) {
  using namespace std::chrono;
  const auto limit = steady_clock::now() + seconds(60);
  while (!condition()) {
    if (steady_clock::now() > limit) return false;
    std::this_thread::sleep_for(milliseconds(1));
  }
  return true;
}

/// True while the thread of this process waits for something.
inline bool is_asleep(int tid) {
  std::ifstream file("/proc/self/task/" + std::to_string(tid) + "/stat");
  const std::string text((std::istreambuf_iterator<char>(file)), {});
  const auto end_of_name = text.rfind(')');
  return end_of_name != std::string::npos && text.compare(end_of_name + 1, 2, " S") == 0;
}

inline int open_descriptors() {
  int count = 0;
  DIR* dir = opendir("/proc/self/fd");
  while (readdir(dir) != nullptr) ++count;
  closedir(dir);
  return count;
}

/// A node of the platform that closes itself.
class DeviceNode {
 public:
  explicit DeviceNode(const char* name, int flags = O_RDWR | O_NONBLOCK)
      : name_(name), fd_(qel_device_open(name, flags)) {}
  DeviceNode(const DeviceNode&) = delete;
  DeviceNode& operator=(const DeviceNode&) = delete;
  ~DeviceNode() {
    if (fd_ > 0) qel_device_close(name_.c_str(), fd_);
  }

  [[nodiscard]] int fd() const { return fd_; }
  [[nodiscard]] std::string number() const { return std::to_string(fd_); }

 private:
  std::string name_;
  int fd_;
};

inline int set_section_filter(int fd, unsigned pid) {
  dmx_sct_filter_params filter{};
  filter.pid = static_cast<std::uint16_t>(pid);
  filter.filter.filter[0] = kTableId;
  filter.filter.mask[0] = 0xff;
  filter.flags = DMX_IMMEDIATE_START;
  return qel_device_ioctl(fd, KWRX_DMX_SET_FILTER, &filter);
}

inline int set_pes_filter(int fd, unsigned pid) {
  dmx_pes_filter_params filter{};
  filter.pid = static_cast<std::uint16_t>(pid);
  filter.input = DMX_IN_DVR;
  filter.output = DMX_OUT_TAP;
  filter.pes_type = DMX_PES_OTHER;
  filter.flags = DMX_IMMEDIATE_START;
  return qel_device_ioctl(fd, KWRX_DMX_SET_PES_FILTER, &filter);
}

}  // namespace vantrel::test
