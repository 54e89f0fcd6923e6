// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <mutex>

namespace qel::receiver {

/// A mutex whose holder, on taking it again, lets a waiting thread go first.
///
/// A feeder gives its demux up for a moment after each batch; a plain mutex
/// would mostly give it back to the same thread and starve the requests.
class FairMutex {
 public:
  void lock() {
    const std::lock_guard<std::mutex> turn(gate_);
    mutex_.lock();
  }
  bool try_lock() { return mutex_.try_lock(); }
  void unlock() { mutex_.unlock(); }

 private:
  std::mutex gate_;
  std::mutex mutex_;
};

}  // namespace qel::receiver
