// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/receiver/receiver.h"

#include <errno.h>

#include <string>

#include "platform/receiver/driver.h"
#include "platform/receiver/filter_node.h"
#include "platform/receiver/ports.h"
#include "platform/receiver/stream_node.h"

namespace qel::receiver {
namespace {

using NodePointer = std::shared_ptr<Node>;

NodePointer open_filter(Demux& demux, std::string name, int flags, bool temi, int& error) {
  auto node = std::make_shared<FilterNode>(demux, std::move(name), flags, temi);
  const std::lock_guard<FairMutex> lock(demux.mutex);
  if (node->fd() < 0 || demux.nodes.size() >= QEL_RECEIVER_NODES) {
    error = EMFILE;
    return nullptr;
  }
  demux.nodes.push_back(node);
  return node;
}

NodePointer open_demux(Demux& demux, std::string name, int flags, int& error) {
  return open_filter(demux, std::move(name), flags, false, error);
}

NodePointer open_temi(Demux& demux, std::string name, int flags, int& error) {
  return open_filter(demux, std::move(name), flags, true, error);
}

NodePointer open_record(Demux& demux, std::string name, int flags, int& error) {
  return StreamNode::open_record(demux, std::move(name), flags, error);
}

/// A kind of node that each demux has.
struct NodeKind {
  std::string_view name;  // without the demux's number
  NodePointer (*open)(Demux& demux, std::string name, int flags, int& error);
  std::array<const char*, QEL_RECEIVER_DEMUXES> paths;
};

constexpr std::array<NodeKind, 3> kKinds = {{
    {"qel_demux",
     open_demux,
     {"/dev/qel/demux0", "/dev/qel/demux1", "/dev/qel/demux2", "/dev/qel/demux3", "/dev/qel/demux4",
      "/dev/qel/demux5"}},
    {"qel_temi",
     open_temi,
     {"/dev/qel/temi0", "/dev/qel/temi1", "/dev/qel/temi2", "/dev/qel/temi3", "/dev/qel/temi4",
      "/dev/qel/temi5"}},
    {"qel_dvr",
     open_record,
     {"/dev/qel/dvr0", "/dev/qel/dvr1", "/dev/qel/dvr2", "/dev/qel/dvr3", "/dev/qel/dvr4",
      "/dev/qel/dvr5"}},
}};

/// The kind of a demux's node, and the number of the demux; or nullptr.
const NodeKind* find_kind(std::string_view name, unsigned& number) {
  for (const NodeKind& kind : kKinds) {
    if (name.size() != kind.name.size() + 1 || !name.starts_with(kind.name)) continue;
    number = static_cast<unsigned>(name.back() - '0');
    if (number < QEL_RECEIVER_DEMUXES) return &kind;
  }
  return nullptr;
}

}  // namespace

Receiver& receiver() {
  static Receiver& instance = *new Receiver;
  return instance;
}

Demux* find_demux(unsigned number) {
  if (number < QEL_RECEIVER_DEMUXES) return &receiver().demuxes[number];
  errno = EINVAL;
  return nullptr;
}

Demux* find_demux(unsigned number, dmx_input input) {
  if (input == DMX_IN_FRONTEND || input == DMX_IN_DVR) return find_demux(number);
  errno = EINVAL;
  return nullptr;
}

EveryDemux::EveryDemux() {
  for (std::size_t i = 0; i < locks_.size(); ++i) {
    locks_[i] = std::unique_lock<FairMutex>(receiver().demuxes[i].mutex);
  }
}

std::shared_ptr<Node> open_node(std::string_view name, int flags, int& error) {
  unsigned number = 0;
  if (const NodeKind* kind = find_kind(name, number)) {
    return kind->open(receiver().demuxes[number], std::string(name), flags, error);
  }
  if (Port* port = find_port(name)) return StreamNode::open_port(*port, flags, error);
  error = ENOENT;
  return nullptr;
}

const char* device_path(std::string_view name) {
  unsigned number = 0;
  if (const NodeKind* kind = find_kind(name, number)) return kind->paths[number];
  const Port* port = find_port(name);
  return port ? port->path : nullptr;
}

}  // namespace qel::receiver
