// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <errno.h>
#include <fcntl.h>
#include <qel/device.h>
#include <qel/dmx.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/ts_builder.h"

namespace fuzz {

using stream::Bytes;

/// An open node, closed in the end.
class FuzzNode {
 public:
  explicit FuzzNode(const std::string& name, int flags = O_RDONLY | O_NONBLOCK)
      : fd_(qel_device_open(name.c_str(), flags)) {}
  FuzzNode(FuzzNode&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  FuzzNode& operator=(FuzzNode&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~FuzzNode() {
    if (fd_ >= 0) qel_device_close(nullptr, fd_);
  }

  [[nodiscard]] int fd() const { return fd_; }
  [[nodiscard]] int control(unsigned long request, void* argument = nullptr) const {
    return qel_device_ioctl(fd_, request, argument);
  }
  void size(std::size_t bytes) const { qel_device_ioctl(fd_, KWRX_DMX_SET_BUFFER_SIZE, bytes); }
  [[nodiscard]] int section(unsigned pid, const dmx_filter& filter, unsigned flags) const {
    dmx_sct_filter_params params{};
    params.pid = static_cast<std::uint16_t>(pid);
    params.filter = filter;
    params.flags = flags | DMX_IMMEDIATE_START;
    return control(KWRX_DMX_SET_FILTER, &params);
  }
  [[nodiscard]] int pes(unsigned pid, dmx_output output, dmx_input input,
                        dmx_ts_pes type = DMX_PES_OTHER) const {
    dmx_pes_filter_params params{};
    params.pid = static_cast<std::uint16_t>(pid);
    params.input = input;
    params.output = output;
    params.pes_type = type;
    params.flags = DMX_IMMEDIATE_START;
    return control(KWRX_DMX_SET_PES_FILTER, &params);
  }
  /// One read; empty where it gives nothing, with errno.
  [[nodiscard]] Bytes read(std::size_t size = 65536) const {
    thread_local Bytes buffer;  // most reads are far smaller: only those bytes are kept
    buffer.resize(std::max(buffer.size(), size));
    const ssize_t count = qel_device_read(fd_, buffer.data(), size);
    if (count == 0) errno = 0;
    return {buffer.begin(), buffer.begin() + std::max<ssize_t>(count, 0)};
  }

 private:
  int fd_;
};

}  // namespace fuzz
