// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/vantrel/counters.h"

#include <numeric>

namespace tools {
namespace {

constexpr unsigned kDemux = 0;
constexpr unsigned kPids = 0x2000;

void add_node(const qel_node_counters* node, void* nodes) {
  static_cast<std::vector<qel_node_counters>*>(nodes)->push_back(*node);
}

}  // namespace

Counters Counters::read(dmx_input input) {
  Counters counters;
  qel_receiver_get_input_counters(kDemux, input, &counters.input);
  qel_receiver_foreach_node(kDemux, add_node, &counters.nodes);
  for (unsigned pid = 0; pid < kPids; pid++) {
    Pid row{pid};
    qel_receiver_get_pid_counters(kDemux, input, pid, &row.counters);
    if (row.counters.packets > 0) counters.pids.push_back(row);
  }
  return counters;
}

std::uint64_t Counters::errors() const {
  std::uint64_t sum = input.transport_errors + input.discontinuities + input.sync_losses;
  for (const Pid& row : pids) sum += row.counters.section_errors + row.counters.crc_errors;
  return sum;
}

std::uint64_t Counters::drops() const {
  return std::accumulate(
      nodes.begin(), nodes.end(), std::uint64_t{0},
      [](std::uint64_t sum, const qel_node_counters& node) { return sum + node.dropped; });
}

}  // namespace tools
