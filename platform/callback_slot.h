// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <atomic>
#include <mutex>

namespace qel {

/// A replaceable C callback whose last argument is its user data.
///
/// Calls are serialised, so that set() returns only when the former callback
/// has left. The mutex is innermost: callbacks call nothing back.
template <typename... Args>
class CallbackSlot {
 public:
  using Function = void (*)(Args..., void*);

  void set(Function function, void* user_data) {
    const std::lock_guard lock(mutex_);
    function_ = function;
    user_data_ = user_data;
    is_set_.store(function != nullptr, std::memory_order_relaxed);
  }

  /// One load: whether call() is worth preparing.
  [[nodiscard]] bool is_set() const { return is_set_.load(std::memory_order_relaxed); }

  /// False where no callback is set (any more).
  bool call(Args... args) {
    const std::lock_guard lock(mutex_);
    if (function_ == nullptr) return false;
    function_(args..., user_data_);
    return true;
  }

 private:
  std::mutex mutex_;
  Function function_ = nullptr;  // guarded by mutex_
  void* user_data_ = nullptr;    // guarded by mutex_
  std::atomic<bool> is_set_{false};
};

}  // namespace qel
