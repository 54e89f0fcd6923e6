// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

namespace qel::receiver {

class RingNode;

/// Wakes the readers of fast streams, a moment late. One thread, while there are any;
/// it ends by itself, so that this must live as long as the process.
class LateWakes {
 public:
  /// Has the node's ring wake its reader within a millisecond. The node's demux and
  /// its ring may be locked. False where the system has no thread for that.
  bool add(std::weak_ptr<RingNode> node);

 private:
  using Nodes = std::vector<std::weak_ptr<RingNode>>;

  void run();
  bool take_next(Nodes& nodes);

  std::mutex mutex_;  // taken under a ring's lock; none is taken under it
  std::condition_variable added_;
  Nodes nodes_;           // mutex_
  bool running_ = false;  // mutex_; a thread will look at nodes_ again
};

}  // namespace qel::receiver
