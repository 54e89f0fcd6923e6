// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <qel/device.h>
#include <qel/dmx.h>
#include <qel/receiver.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/ts_builder.h"

using stream::operator+;
using stream::operator+=;

/// An open node; closed at the end of the test.
class TestNode {
 public:
  explicit TestNode(std::string name, int flags = O_RDWR | O_NONBLOCK)
      : name_(std::move(name)), fd_(qel_device_open(name_.c_str(), flags)), error(errno) {}
  TestNode(const TestNode&) = delete;
  TestNode& operator=(const TestNode&) = delete;
  ~TestNode() { close(); }

  explicit operator bool() const { return fd_ >= 0; }
  [[nodiscard]] int fd() const { return fd_; }
  void close() {
    if (open_) qel_device_close(name_.c_str(), fd_);
    open_ = false;
  }

  /// Requests give what they return, or -errno.
  int control(unsigned long request, void* argument = nullptr) {
    const int result = qel_device_ioctl(fd_, request, argument);
    return result < 0 ? -errno : result;
  }
  int buffer(std::size_t size) {
    return control(KWRX_DMX_SET_BUFFER_SIZE, reinterpret_cast<void*>(size));
  }
  int section(unsigned pid, unsigned flags = DMX_IMMEDIATE_START, const dmx_filter& filter = {},
              unsigned timeout = 0) {
    dmx_sct_filter_params params{};
    params.pid = static_cast<std::uint16_t>(pid);
    params.filter = filter;
    params.flags = flags;
    params.timeout = timeout;
    return control(KWRX_DMX_SET_FILTER, &params);
  }
  int pes(unsigned pid, dmx_output output, dmx_ts_pes type = DMX_PES_OTHER,
          dmx_input input = DMX_IN_DVR, unsigned flags = DMX_IMMEDIATE_START) {
    dmx_pes_filter_params params{};
    params.pid = static_cast<std::uint16_t>(pid);
    params.input = input;
    params.output = output;
    params.pes_type = type;
    params.flags = flags;
    return control(KWRX_DMX_SET_PES_FILTER, &params);
  }

  /// What one read gives; empty with `last` the errno, or 0 at the end.
  stream::Bytes read(std::size_t size = 65536) {
    stream::Bytes bytes(size);
    const ssize_t count = qel_device_read(fd_, bytes.data(), size);
    last = count < 0 ? errno : 0;
    bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return bytes;
  }
  /// Sizes of what can be read now; an error other than EAGAIN as -errno.
  std::vector<int> drain() {
    std::vector<int> sizes;
    for (int i = 0; i < 100000; ++i) {
      const stream::Bytes bytes = read();
      if (bytes.empty() && (last == EAGAIN || last == 0)) break;
      sizes.push_back(bytes.empty() ? -last : static_cast<int>(bytes.size()));
    }
    return sizes;
  }
  stream::Bytes read_all() {
    stream::Bytes all;
    for (stream::Bytes piece = read(); !piece.empty(); piece = read()) all += piece;
    return all;
  }
  bool readable(int milliseconds = 0) const {
    pollfd entry{fd_, POLLIN, 0};
    return poll(&entry, 1, milliseconds) == 1 && (entry.revents & POLLIN);
  }

  int last = 0;  // errno of the last read

 private:
  const std::string name_;
  const int fd_;
  bool open_ = fd_ >= 0;

 public:
  const int error;  // errno of opening, where that failed
};

/// Tests on demux 0, whose inputs are fresh for each.
class ReceiverTest : public testing::Test {
 protected:
  void SetUp() override {
    qel_receiver_set_pacing(0, 0);
    for (const dmx_input input : {DMX_IN_FRONTEND, DMX_IN_DVR}) {
      qel_receiver_set_flushing(0, input, 1);
      qel_receiver_set_flushing(0, input, 0);
    }
    qel_receiver_reset_counters(0);
  }

  static int feed(const stream::Bytes& bytes, dmx_input input = DMX_IN_DVR) {
    return qel_receiver_feed(0, input, bytes.data(), bytes.size()) == 0 ? 0 : errno;
  }
  static qel_input_counters input_counters(dmx_input input = DMX_IN_DVR) {
    qel_input_counters counters;
    qel_receiver_get_input_counters(0, input, &counters);
    return counters;
  }
  static qel_pid_counters pid_counters(unsigned pid, dmx_input input = DMX_IN_DVR) {
    qel_pid_counters counters;
    qel_receiver_get_pid_counters(0, input, pid, &counters);
    return counters;
  }
  static qel_node_counters node_counters(const TestNode& node) {
    std::pair<int, qel_node_counters> found{node.fd(), {}};
    qel_receiver_foreach_node(
        0,
        [](const qel_node_counters* counters, void* data) {
          auto& wanted = *static_cast<std::pair<int, qel_node_counters>*>(data);
          if (counters->fd == wanted.first) wanted.second = *counters;
        },
        &found);
    return found.second;
  }

  stream::Multiplex mux;
};

/// A call in a thread of its own, and whether it has returned.
class Background {
 public:
  explicit Background(std::function<int()> call)
      : thread_([this, call = std::move(call)] {
          const int result = call();
          const std::lock_guard<std::mutex> lock(mutex_);
          result_ = result;
          done_ = true;
          changed_.notify_all();
        }) {}
  ~Background() { thread_.join(); }

  bool done_within(std::chrono::milliseconds limit) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, limit, [this] { return done_; });
  }
  int result() {
    std::unique_lock<std::mutex> lock(mutex_);
    EXPECT_TRUE(changed_.wait_for(lock, std::chrono::seconds(20), [this] { return done_; }));
    return result_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool done_ = false;  // mutex_
  int result_ = -1;    // mutex_
  std::thread thread_;
};

/// New threads' stacks are larger than the address space while it lives.
class NoThreads {
 public:
  NoThreads() {
    pthread_getattr_default_np(&before_);
    pthread_attr_t huge;
    pthread_attr_init(&huge);
    pthread_attr_setstacksize(&huge, std::size_t{1} << 47);
    pthread_setattr_default_np(&huge);
  }
  ~NoThreads() { pthread_setattr_default_np(&before_); }

 private:
  pthread_attr_t before_;
};
