// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/receiver/timers.h"

#include <algorithm>
#include <utility>

#include "platform/receiver/detached.h"
#include "platform/receiver/filter_node.h"

namespace qel::receiver {

bool Timers::arm(std::weak_ptr<FilterNode> node, const void* key, std::uint64_t start,
                 Clock::time_point deadline) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!running_) running_ = start_detached([this] { run(); });
  if (!running_) return false;
  limits_.push_back({std::move(node), key, start, deadline});
  changed_.notify_all();
  return true;
}

void Timers::disarm(const void* key) {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::erase_if(limits_, [&](const Limit& limit) { return limit.key == key; });
  changed_.notify_all();
}

void Timers::run() {
  Limit limit;
  while (take_next(limit)) {
    if (const auto node = limit.node.lock()) node->time_out(limit.start);
  }
}

/// Waits for the next limit to be over; false when there is none any more.
bool Timers::take_next(Limit& limit) {
  std::unique_lock<std::mutex> lock(mutex_);
  while (!limits_.empty()) {
    const auto next =
        std::min_element(limits_.begin(), limits_.end(),
                         [](const Limit& a, const Limit& b) { return a.deadline < b.deadline; });
    if (next->deadline <= Clock::now()) {
      limit = std::move(*next);
      limits_.erase(next);
      return true;
    }
    const Clock::time_point deadline = next->deadline;
    changed_.wait_until(lock, deadline);
  }
  running_ = false;
  return false;
}

}  // namespace qel::receiver
