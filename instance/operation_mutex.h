// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <atomic>
#include <mutex>
#include <thread>

namespace vantrel {

/// A recursive mutex that knows whether the calling thread holds it: what waits
/// for another thread must not do so from inside an operation that the other
/// thread may be waiting for.
class OperationMutex {
 public:
  void lock() {
    mutex_.lock();
    if (depth_++ == 0) owner_ = std::this_thread::get_id();
  }
  void unlock() {
    if (--depth_ == 0) owner_ = std::thread::id();
    mutex_.unlock();
  }
  [[nodiscard]] bool held_here() const { return owner_ == std::this_thread::get_id(); }

 private:
  std::recursive_mutex mutex_;
  int depth_ = 0;                       // guarded by mutex_
  std::atomic<std::thread::id> owner_;  // written with mutex_ held
};

}  // namespace vantrel
