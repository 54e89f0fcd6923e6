// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <fcntl.h>
#include <qel/device.h>
#include <qel/dmx.h>
#include <qel/receiver.h>

#include <string>
#include <vector>

#include "tests/support/ts_builder.h"

namespace vantrel::test {

/// A node of the platform, closed in the end.
class TestNode {
 public:
  explicit TestNode(std::string name, int flags = O_RDWR | O_NONBLOCK);
  TestNode(TestNode&& other) noexcept;
  TestNode& operator=(TestNode&& other) = delete;
  ~TestNode() { close(); }

  explicit operator bool() const { return fd_ >= 0; }
  [[nodiscard]] int fd() const { return fd_; }
  /// Later calls go to the number that was the node's.
  void close();

  /// Requests give what they return, or -errno.
  int control(unsigned long request, void* argument = nullptr) const;
  int buffer(std::size_t size) const;
  int section(unsigned pid, unsigned flags = DMX_IMMEDIATE_START, const dmx_filter& filter = {},
              unsigned timeout = 0) const;
  int pes(unsigned pid, dmx_output output, dmx_ts_pes type = DMX_PES_OTHER,
          dmx_input input = DMX_IN_DVR, unsigned flags = DMX_IMMEDIATE_START) const;

  /// What one read gives; empty with `last` the errno, or 0 at the end.
  stream::Bytes read(std::size_t size = 65536);
  /// Sizes of what can be read now; an error other than EAGAIN as -errno.
  std::vector<int> drain();
  stream::Bytes read_all();
  bool readable(int milliseconds = 0) const;

  int last = 0;   // errno of the last read
  int error = 0;  // errno of opening, where that failed

 private:
  std::string name_;
  int fd_;
  bool open_;
};

/// What the receiver has counted for a node of demux 0.
qel_node_counters counters_of(int fd);

/// Begins an input, or both, of a demux afresh.
void flush(unsigned demux, dmx_input input);
void flush(unsigned demux);

}  // namespace vantrel::test
