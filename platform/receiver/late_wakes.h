// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <condition_variable>
#include <mutex>
#include <vector>

namespace qel::receiver {

class Ring;

/// Wakes the readers of fast streams, a moment late. One thread, while there are any;
/// it ends by itself, so that this must live as long as the process.
class LateWakes {
 public:
  /// Has Ring::wake() called within a millisecond. The ring's demux and the ring may be
  /// locked. False where the system has no thread for that.
  bool add(Ring& ring);
  /// The ring is fed no more, and will go: waits while it is being woken. Its demux may
  /// be locked, the ring must not.
  void forget(Ring& ring);

 private:
  void run();
  void wake_first(std::unique_lock<std::mutex>& lock);

  std::mutex mutex_;  // taken under a ring's lock; none is taken under it
  std::condition_variable added_;
  std::condition_variable woken_;
  std::vector<Ring*> rings_;  // mutex_
  Ring* waking_ = nullptr;    // mutex_
  bool running_ = false;      // mutex_; a thread will look at rings_ again
};

}  // namespace qel::receiver
