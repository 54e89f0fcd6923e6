// SPDX-License-Identifier: LGPL-2.1-or-later
#include <qel/log.h>

#include <chrono>

#include "platform/receiver/feeder.h"
#include "platform/receiver/filter_node.h"
#include "platform/receiver/ports.h"
#include "platform/receiver/stream_node.h"

namespace qel::receiver {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kLongWait{5};
constexpr unsigned kNoPid = 0xffff;

}  // namespace

/// Lets a live input's data in no sooner than its time. False: cancelled.
bool Feeder::pace(const Packet& packet) {
  if (lossless() || !demux_.pacing) return true;
  const bool first = !input_.pacer.pid();
  const Clock::time_point now = Clock::now();
  const Clock::duration delay = input_.pacer.delay(packet.pid(), packet.pcr(), now);
  if (first) demux_.refresh(input_, packet.pid());
  if (input_.pacer.pid() == packet.pid()) input_.bytes_without_pcr = 0;
  if (delay <= Clock::duration::zero()) return true;
  demux_.publish(lossless());
  input_.pace.wait_until(lock_, now + delay, [this] { return cancelled() || !demux_.pacing; });
  return !cancelled();
}

bool Feeder::wait_for_room(RingNode& node, std::size_t bytes, unsigned pid) {
  return wait_until_read(node, node.ring.target_for_room(bytes), pid);
}

/// Gives the demux up until the node's reader has got so far, or the node is
/// stopped or closed. False: cancelled.
bool Feeder::wait_until_read(RingNode& node, std::uint64_t target, unsigned pid) {
  const std::shared_ptr<RingNode> kept = node.shared_from_this();
  demux_.publish(lossless());
  hold_clocks(true);
  input_.waiting_on = kept;
  while (!cancelled() && !kept->ring.wait_until_read(lock_, target, kLongWait)) {
    qel_log_write(QEL_LOG_BUFFER_MAIN, QEL_LOG_WARNING, "qelreceiver",
                  "demux %u: waits for room on %s (fd %d, pid 0x%x): nobody reads", demux_.number,
                  kept->name().c_str(), kept->fd(), pid);
  }
  input_.waiting_on.reset();
  hold_clocks(false);
  return !cancelled();
}

/// The clocks that follow this input stand while it does.
void Feeder::hold_clocks(bool hold) {
  const Clock::time_point now = Clock::now();
  for (FilterNode* filter : demux_.clocks) {
    if (!filter->follows(input_)) continue;
    if (hold) {
      filter->clock.hold(now);
    } else {
      filter->clock.resume(now);
    }
  }
}

/// The record node, unless it is the other input's data that is recorded.
StreamNode* Feeder::own_record() const {
  for (const auto& node : demux_.nodes) {
    const bool records = node->kind() == QEL_NODE_TS_TAP && node->is_running();
    if (records && !node->follows(input_)) return nullptr;
  }
  return demux_.record.get();
}

/// Looks at what this input feeds. False: cancelled.
bool Feeder::wait_until_empty() {
  const auto waits = [](const RingNode& node) {
    return node.is_read() && node.ring.available() > 0;
  };
  for (;;) {
    RingNode* full = nullptr;
    for (const auto& node : demux_.nodes) {
      if (node->follows(input_) && waits(*node)) full = node.get();
    }
    for (Port& port : ports()) {
      if (port.last_input == &input_ && port.reader && waits(*port.reader)) {
        full = port.reader.get();
      }
    }
    if (StreamNode* record = own_record(); record && waits(*record)) full = record;
    if (!full) return true;
    if (!wait_until_read(*full, full->ring.target_for_empty(), kNoPid)) return false;
  }
}

}  // namespace qel::receiver
