// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/receiver/counters.h"

#include <errno.h>

#include <mutex>

#include "platform/receiver/filter_node.h"
#include "platform/receiver/ports.h"
#include "platform/receiver/receiver.h"
#include "platform/receiver/stream_node.h"

namespace qel::receiver {
namespace {

using Lock = std::lock_guard<FairMutex>;

/// The nodes whose writer side is this demux's. Its lock is held.
template <typename Visit>
void visit_nodes(Demux& demux, Visit visit) {
  for (const auto& node : demux.nodes) visit(*node);
  if (demux.record) visit(*demux.record);
  for (Port& port : ports()) {
    if (port.feeder == &demux && port.reader) visit(*port.reader);
  }
}

}  // namespace

qel_input_counters input_counters(Demux& demux, dmx_input number) {
  const Lock lock(demux.mutex);
  const Input& input = demux.inputs[number];
  qel_input_counters counters = input.counters;
  counters.null_packets = input.pids.packets(kNullPid);
  return counters;
}

qel_pid_counters pid_counters(Demux& demux, dmx_input number, unsigned pid) {
  const Lock lock(demux.mutex);
  PidTable& pids = demux.inputs[number].pids;
  const PidTable::Rare& rare = pids.rare(pid);
  const Route* route = pids.route(pid);
  return {pids.packets(pid), rare.discontinuities, rare.sections,
          route ? route->assembler.errors() : 0, rare.crc_errors};
}

std::vector<qel_node_counters> node_counters(Demux& demux) {
  std::vector<qel_node_counters> all;
  const Lock lock(demux.mutex);
  visit_nodes(demux, [&](const RingNode& node) { node.count(all.emplace_back()); });
  return all;
}

}  // namespace qel::receiver

using qel::receiver::Demux;
using qel::receiver::find_demux;

namespace {

int refused() {
  errno = EINVAL;
  return -1;
}

}  // namespace

int qel_receiver_get_input_counters(unsigned int number, enum dmx_input input,
                                    struct qel_input_counters* counters) {
  Demux* demux = find_demux(number, input);
  if (!demux || !counters) return refused();
  *counters = qel::receiver::input_counters(*demux, input);
  return 0;
}

int qel_receiver_get_pid_counters(unsigned int number, enum dmx_input input, unsigned int pid,
                                  struct qel_pid_counters* counters) {
  Demux* demux = find_demux(number, input);
  if (!demux || pid > qel::receiver::kNullPid || !counters) return refused();
  *counters = qel::receiver::pid_counters(*demux, input, pid);
  return 0;
}

int qel_receiver_foreach_node(unsigned int number, QelNodeCallback callback, void* user_data) {
  Demux* demux = find_demux(number);
  if (!demux || !callback) return refused();
  const auto nodes = qel::receiver::node_counters(*demux);
  for (const qel_node_counters& node : nodes) callback(&node, user_data);
  return static_cast<int>(nodes.size());
}

int qel_receiver_reset_counters(unsigned int number) {
  Demux* demux = find_demux(number);
  if (!demux) return refused();
  const std::lock_guard<qel::receiver::FairMutex> lock(demux->mutex);
  for (qel::receiver::Input& input : demux->inputs) {
    input.counters = {};
    input.pids.reset_counters();
  }
  qel::receiver::visit_nodes(*demux, [](qel::receiver::RingNode& node) { node.reset_counters(); });
  return 0;
}
