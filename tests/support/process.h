// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>

/// What tests ask of their own process and its threads.
namespace vantrel::test {

/// Longest wait for something that is bound to happen.
constexpr std::chrono::seconds kPatience{20};

/// Waits until `condition` holds; false after kPatience.
bool eventually(const std::function<bool()>& condition);

/// Runs `body` on a thread of its own and ends the program where it does not
/// come back: a deadlock is to fail, not to hang.
void within_limit(const std::function<void()>& body, std::chrono::seconds limit = 3 * kPatience);

/// Path of a temporary file of the process's own; its death tests' children, which
/// inherit the environment, are given the same one.
std::string own_file(const std::string& name);

/// Descriptors this process has open.
std::size_t open_descriptors();
/// Resident memory of this process in bytes; always 0 under the address and the
/// thread sanitizer, which keep their own books in it.
std::size_t resident_bytes();

/// What calls of a function leave behind.
struct Growth {
  long descriptors;
  long bytes;
};
/// Of `rounds` calls of `act`, with rising numbers, after as many as `first`.
Growth growth_by(unsigned first, unsigned rounds, const std::function<void(unsigned)>& act);

/// True while the thread of this process waits for something.
bool is_asleep(int tid);

/// A call in a thread of its own, and whether it has returned.
template <typename Result>
class Background {
 public:
  explicit Background(std::function<Result()> call)
      : thread_([this, call = std::move(call)] {
          tid_ = gettid();
          Result result = call();
          const std::lock_guard lock(mutex_);
          result_ = std::move(result);
          done_ = true;
          changed_.notify_all();
        }) {}
  Background(const Background&) = delete;
  Background& operator=(const Background&) = delete;
  ~Background() { thread_.join(); }

  /// True once the call sleeps in the system, false where it is over.
  bool waits() {
    return eventually([this] { return done_ || (tid_ != 0 && is_asleep(tid_)); }) && !done_;
  }
  bool done_within(std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [this] { return done_.load(); });
  }
  /// What the call returns; waits for that.
  Result result() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return done_.load(); });
    return result_;
  }
  std::thread& thread() { return thread_; }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::atomic<int> tid_{0};
  std::atomic<bool> done_{false};  // set under mutex_
  Result result_{};                // guarded by mutex_
  std::thread thread_;
};
template <typename Call>
Background(Call) -> Background<std::invoke_result_t<Call>>;

}  // namespace vantrel::test
