// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tests/support/test_node.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace vantrel::test {

using stream::Bytes;
using stream::operator+=;

TestNode::TestNode(std::string name, int flags)
    : name_(std::move(name)), fd_(qel_device_open(name_.c_str(), flags)), open_(fd_ >= 0) {
  if (!open_) error = errno;
}

TestNode::TestNode(TestNode&& other) noexcept
    : last(other.last),
      error(other.error),
      name_(std::move(other.name_)),
      fd_(other.fd_),
      open_(std::exchange(other.open_, false)) {}

void TestNode::close() {
  if (open_) qel_device_close(name_.c_str(), fd_);
  open_ = false;
}

int TestNode::control(unsigned long request, void* argument) const {
  const int result = qel_device_ioctl(fd_, request, argument);
  return result < 0 ? -errno : result;
}

int TestNode::buffer(std::size_t size) const {
  return control(KWRX_DMX_SET_BUFFER_SIZE, reinterpret_cast<void*>(size));
}

int TestNode::section(unsigned pid, unsigned flags, const dmx_filter& filter,
                      unsigned timeout) const {
  dmx_sct_filter_params params{
      .pid = static_cast<std::uint16_t>(pid), .filter = filter, .timeout = timeout, .flags = flags};
  return control(KWRX_DMX_SET_FILTER, &params);
}

int TestNode::pes(unsigned pid, dmx_output output, dmx_ts_pes type, dmx_input input,
                  unsigned flags) const {
  dmx_pes_filter_params params{.pid = static_cast<std::uint16_t>(pid),
                               .input = input,
                               .output = output,
                               .pes_type = type,
                               .flags = flags};
  return control(KWRX_DMX_SET_PES_FILTER, &params);
}

Bytes TestNode::read(std::size_t size) {
  thread_local Bytes buffer;  // most reads are far smaller: only those bytes are kept
  buffer.resize(std::max(buffer.size(), size));
  const ssize_t count = qel_device_read(fd_, buffer.data(), size);
  last = count < 0 ? errno : 0;
  return {buffer.begin(), buffer.begin() + std::max<ssize_t>(count, 0)};
}

std::vector<int> TestNode::drain() {
  std::vector<int> sizes;
  for (int i = 0; i < 100000; ++i) {
    const Bytes bytes = read();
    if (bytes.empty() && (last == EAGAIN || last == 0)) break;
    sizes.push_back(bytes.empty() ? -last : static_cast<int>(bytes.size()));
  }
  return sizes;
}

Bytes TestNode::read_all() {
  Bytes all;
  for (Bytes piece = read(); !piece.empty(); piece = read()) all += piece;
  return all;
}

bool TestNode::readable(int milliseconds) const {
  pollfd entry{fd_, POLLIN, 0};
  return poll(&entry, 1, milliseconds) == 1 && (entry.revents & POLLIN) != 0;
}

qel_node_counters counters_of(int fd) {
  std::pair<int, qel_node_counters> found{fd, {}};
  const auto compare = [](const qel_node_counters* counters, void* data) {
    auto& wanted = *static_cast<std::pair<int, qel_node_counters>*>(data);
    if (counters->fd == wanted.first) wanted.second = *counters;
  };
  qel_receiver_foreach_node(0, compare, &found);
  return found.second;
}

void flush(unsigned demux, dmx_input input) {
  qel_receiver_set_flushing(demux, input, 1);
  qel_receiver_set_flushing(demux, input, 0);
}

void flush(unsigned demux) {
  for (const dmx_input input : {DMX_IN_FRONTEND, DMX_IN_DVR}) flush(demux, input);
}

}  // namespace vantrel::test
