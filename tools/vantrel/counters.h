// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <qel/receiver.h>

#include <cstdint>
#include <vector>

namespace tools {

/// What the receiver has counted so far.
struct Counters {
  qel_input_counters input = {};
  std::vector<qel_node_counters> nodes;
  struct Pid {
    unsigned pid = 0;
    qel_pid_counters counters = {};
  };
  std::vector<Pid> pids;  // those that came by

  /// Of the first demux and this input of it.
  static Counters read(dmx_input input);

  /// What the stream lost before it came here.
  [[nodiscard]] std::uint64_t errors() const;
  /// What was lost here, for lack of room.
  [[nodiscard]] std::uint64_t drops() const;
};

}  // namespace tools
