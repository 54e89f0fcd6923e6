// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/receiver/ring_node.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "platform/receiver/receiver.h"

namespace qel::receiver {

RingNode::RingNode(std::string name, int flags, Ring::Shape shape, std::size_t buffer_size)
    : ring(shape, buffer_size, [this] { return receiver().late_wakes.add(ring); }),
      name_(std::move(name)),
      flags_(flags) {}

void RingNode::close_ring() {
  ring.close();
  receiver().late_wakes.forget(ring);
}

ssize_t RingNode::read(void* buffer, std::size_t size) {
  constexpr std::uintptr_t kFirstPage = 4096;
  if (!is_read()) return -EBADF;
  if (size > 0 && reinterpret_cast<std::uintptr_t>(buffer) < kFirstPage) return -EFAULT;
  return ring.read(buffer, size, (flags_ & O_NONBLOCK) == 0);
}

int RingNode::check_buffer_size(std::size_t size) const {
  if (size == 0) return -EINVAL;
  if (size == ring.size()) return 1;
  return size > kMaxBuffer ? -ENOMEM : 0;
}

void RingNode::count(qel_node_counters& counters) const {
  const Ring::Counters& taken = ring.counters();
  counters = {};
  std::copy_n(name_.data(), std::min(name_.size(), sizeof counters.name - 1), counters.name);
  counters.fd = ring.fd();
  counters.pid = 0xffff;
  counters.buffer_size = ring.size();
  counters.waiting = ring.available();
  counters.records = taken.records;
  counters.bytes = taken.bytes;
  counters.dropped = taken.dropped;
  counters.overflows = ring.overflows();
}

}  // namespace qel::receiver
