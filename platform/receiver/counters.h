// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <qel/receiver.h>

#include <vector>

#include "platform/receiver/demux.h"

namespace qel::receiver {

// All take the lock of the demux for a moment.

qel_input_counters input_counters(Demux& demux, dmx_input input);
qel_pid_counters pid_counters(Demux& demux, dmx_input input, unsigned pid);
/// Its open nodes, its record node, and the ports it feeds.
std::vector<qel_node_counters> node_counters(Demux& demux);

}  // namespace qel::receiver
