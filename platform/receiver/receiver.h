// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <qel/receiver.h>

#include <array>
#include <mutex>

#include "platform/receiver/demux.h"
#include "platform/receiver/late_wakes.h"
#include "platform/receiver/timers.h"

namespace qel::receiver {

/// What the process has one of.
struct Receiver {
  std::array<Demux, QEL_RECEIVER_DEMUXES> demuxes{Demux(0), Demux(1), Demux(2),
                                                  Demux(3), Demux(4), Demux(5)};
  Timers timers;
  LateWakes late_wakes;
};

/// The receiver; made at first use, never destroyed: threads may feed and read
/// until the process ends.
Receiver& receiver();

/// A demux by number; nullptr, and EINVAL, where there is none, or no such input.
Demux* find_demux(unsigned number);
Demux* find_demux(unsigned number, dmx_input input);

/// Holds the locks of all demuxes.
class EveryDemux {
 public:
  EveryDemux();

 private:
  std::array<std::unique_lock<FairMutex>, QEL_RECEIVER_DEMUXES> locks_;
};

}  // namespace qel::receiver
