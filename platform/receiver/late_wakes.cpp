// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/receiver/late_wakes.h"

#include <chrono>
#include <thread>
#include <utility>

#include "platform/receiver/detached.h"
#include "platform/receiver/ring_node.h"

namespace qel::receiver {
namespace {

constexpr std::chrono::milliseconds kLate{1};
constexpr std::chrono::milliseconds kIdle{100};  // so long the thread stays without work

}  // namespace

bool LateWakes::add(std::weak_ptr<RingNode> node) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!running_) running_ = start_detached([this] { run(); });
  if (!running_) return false;
  nodes_.push_back(std::move(node));
  if (nodes_.size() == 1) added_.notify_one();
  return true;
}

void LateWakes::run() {
  for (Nodes nodes; take_next(nodes); nodes.clear()) {
    for (const auto& each : nodes) {
      if (const auto node = each.lock()) node->ring.wake();
    }
  }
}

/// Those that are due; false when there were none for long.
bool LateWakes::take_next(Nodes& nodes) {
  std::unique_lock<std::mutex> lock(mutex_);
  running_ = added_.wait_for(lock, kIdle, [this] { return !nodes_.empty(); });
  if (!running_) return false;
  lock.unlock();
  std::this_thread::sleep_for(kLate);
  lock.lock();
  nodes_.swap(nodes);
  return true;
}

}  // namespace qel::receiver
