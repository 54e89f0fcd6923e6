// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/receiver/late_wakes.h"

#include <chrono>
#include <thread>

#include "platform/receiver/detached.h"
#include "platform/receiver/ring.h"

namespace qel::receiver {
namespace {

constexpr std::chrono::milliseconds kLate{1};
constexpr std::chrono::milliseconds kIdle{100};  // so long the thread stays without work

}  // namespace

bool LateWakes::add(Ring& ring) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!running_) running_ = start_detached([this] { run(); });
  if (!running_) return false;
  rings_.push_back(&ring);
  if (rings_.size() == 1) added_.notify_one();
  return true;
}

void LateWakes::forget(Ring& ring) {
  std::unique_lock<std::mutex> lock(mutex_);
  std::erase(rings_, &ring);
  woken_.wait(lock, [&] { return waking_ != &ring; });
}

void LateWakes::run() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (added_.wait_for(lock, kIdle, [this] { return !rings_.empty(); })) {
    lock.unlock();
    std::this_thread::sleep_for(kLate);
    lock.lock();
    // Those that are added meanwhile have their millisecond before them.
    for (std::size_t due = rings_.size(); due > 0 && !rings_.empty(); --due) wake_first(lock);
  }
  running_ = false;
}

void LateWakes::wake_first(std::unique_lock<std::mutex>& lock) {
  Ring* ring = waking_ = rings_.front();
  rings_.erase(rings_.begin());
  lock.unlock();
  ring->wake();
  lock.lock();
  waking_ = nullptr;
  woken_.notify_all();
}

}  // namespace qel::receiver
