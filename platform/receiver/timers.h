// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace qel::receiver {

class FilterNode;

/// The time limits of section filters. One thread, while there is any limit;
/// it ends by itself, so that this must live as long as the process.
class Timers {
 public:
  using Clock = std::chrono::steady_clock;

  /// Has the node told when `deadline` is over. The node's demux may be locked.
  /// False where the system has no thread for that.
  bool arm(std::weak_ptr<FilterNode> node, const void* key, std::uint64_t start,
           Clock::time_point deadline);
  /// Forgets the limit of the node that was armed with `key`.
  void disarm(const void* key);

 private:
  struct Limit {
    std::weak_ptr<FilterNode> node;
    const void* key;
    std::uint64_t start;
    Clock::time_point deadline;
  };

  void run();
  bool take_next(Limit& limit);

  std::mutex mutex_;  // taken under a demux's lock; none is taken under it
  std::condition_variable changed_;
  std::vector<Limit> limits_;  // mutex_
  bool running_ = false;       // mutex_; a thread will look at limits_ again
};

}  // namespace qel::receiver
