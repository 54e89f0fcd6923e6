// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/receiver/stream_node.h"

#include <fcntl.h>

#include <mutex>
#include <utility>

#include "platform/receiver/filter_node.h"
#include "platform/receiver/ports.h"
#include "platform/receiver/receiver.h"

namespace qel::receiver {
namespace {

constexpr std::size_t kRecordBuffer = 10 * 188 * 1024;  // as the kernel's dvr node
constexpr std::size_t kPortBuffer = std::size_t{4} << 20;

int refuse(int& error, int number) {
  error = number;
  return number;
}

}  // namespace

StreamNode::StreamNode(Demux* demux, Port* port, std::string name, int flags)
    : RingNode(std::move(name), flags, Ring::Shape::kBytes, demux ? kRecordBuffer : kPortBuffer),
      demux_(demux),
      port_(port) {}

std::shared_ptr<StreamNode> StreamNode::open_record(Demux& demux, std::string name, int flags,
                                                    int& error) {
  if ((flags & O_ACCMODE) != O_RDONLY) return refuse(error, EOPNOTSUPP), nullptr;
  auto node = std::make_shared<StreamNode>(&demux, nullptr, std::move(name), flags);
  if (node->fd() < 0) return refuse(error, EMFILE), nullptr;
  const std::lock_guard<FairMutex> lock(demux.mutex);
  if (demux.record) return refuse(error, EBUSY), nullptr;
  if (node->ring.ensure_allocated() < 0) return refuse(error, ENOMEM), nullptr;
  demux.record = node;
  return node;
}

std::shared_ptr<StreamNode> StreamNode::open_port(Port& port, int flags, int& error) {
  if ((flags & O_ACCMODE) == O_WRONLY) return refuse(error, EOPNOTSUPP), nullptr;
  auto node = std::make_shared<StreamNode>(nullptr, &port, port.name, flags);
  if (node->fd() < 0) return refuse(error, EMFILE), nullptr;
  const EveryDemux lock;
  if (port.reader) return refuse(error, EBUSY), nullptr;
  if (node->ring.ensure_allocated() < 0) return refuse(error, ENOMEM), nullptr;
  port.reader = node;
  // Whoever reads gets data from a payload unit start on.
  if (port.filter) port.filter->port_started = false;
  return node;
}

template <typename Change>
int StreamNode::locked(Change change) {
  if (demux_) {
    const std::lock_guard<FairMutex> lock(demux_->mutex);
    return change();
  }
  const EveryDemux lock;
  return change();
}

int StreamNode::set_buffer_size(std::size_t size) {
  return locked([&] {
    const int check = check_buffer_size(size);
    if (check != 0) return check < 0 ? check : 0;
    if (port_ && port_->filter) port_->filter->port_started = false;
    return ring.allocate(size);
  });
}

void StreamNode::close() {
  locked([&] {
    std::shared_ptr<StreamNode>& reader = demux_ ? demux_->record : port_->reader;
    if (reader.get() == this) reader.reset();
    close_ring();
    return 0;
  });
}

void StreamNode::count(qel_node_counters& counters) const {
  RingNode::count(counters);
  counters.kind = demux_ ? QEL_NODE_RECORD : QEL_NODE_PORT;
  counters.running = 1;
}

}  // namespace qel::receiver
