// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

/// What tests ask of their own process and its threads.
namespace vantrel::test {

/// Longest wait for something that is bound to happen.
constexpr std::chrono::seconds kPatience{20};

/// Waits until `condition` holds; false after kPatience.
bool eventually(const std::function<bool()>& condition);

/// Runs `body` on a thread of its own and ends the program where it does not
/// come back: a deadlock is to fail, not to hang.
void within_limit(const std::function<void()>& body, std::chrono::seconds limit = 3 * kPatience);

/// Descriptors this process has open.
std::size_t open_descriptors();
/// Resident memory of this process in bytes; always 0 under the address and the
/// thread sanitizer, which keep their own books in it.
std::size_t resident_bytes();

/// Expects that `rounds` more calls of `act`, with rising numbers, after so many as
/// `first` leave no descriptor open and take no more than `memory` bytes.
void expect_nothing_left_by(unsigned first, unsigned rounds, std::size_t memory,
                            const std::function<void(unsigned)>& act);

/// A call in a thread of its own, and whether it has returned.
class Background {
 public:
  explicit Background(std::function<int()> call);
  Background(const Background&) = delete;
  Background& operator=(const Background&) = delete;
  ~Background() { thread_.join(); }

  /// True once the call sleeps in the system, false where it is over.
  bool waits();
  bool done_within(std::chrono::milliseconds limit);
  /// What the call has returned; a failure of the test where it does not.
  int result();

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::atomic<int> tid_{0};
  std::atomic<bool> done_{false};  // set under mutex_
  int result_ = -1;                // mutex_
  std::thread thread_;
};

}  // namespace vantrel::test
