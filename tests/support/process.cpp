// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tests/support/process.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <string>
#include <utility>

namespace vantrel::test {
namespace {

/// True while the thread of this process waits for something.
bool is_asleep(int tid) {
  std::ifstream file("/proc/self/task/" + std::to_string(tid) + "/stat");
  const std::string text(std::istreambuf_iterator<char>(file), {});
  const auto end_of_name = text.rfind(')');
  return end_of_name != std::string::npos && text.compare(end_of_name + 1, 2, " S") == 0;
}

}  // namespace

bool eventually(const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

void within_limit(const std::function<void()>& body, std::chrono::seconds limit) {
  auto done = std::async(std::launch::async, body);
  if (done.wait_for(limit) != std::future_status::ready) {
    ADD_FAILURE() << "deadlock";
    std::abort();
  }
  done.get();
}

std::size_t open_descriptors() {
  const std::filesystem::directory_iterator entries("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

std::size_t resident_bytes() {
#if defined __SANITIZE_ADDRESS__ || defined __SANITIZE_THREAD__
  return 0;
#endif
  std::ifstream file("/proc/self/statm");
  std::size_t size = 0;
  std::size_t resident = 0;
  file >> size >> resident;
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

void expect_nothing_left_by(unsigned first, unsigned rounds, std::size_t memory,
                            const std::function<void(unsigned)>& act) {
  for (unsigned i = 0; i < first; ++i) act(i);
  const std::size_t descriptors = open_descriptors();
  const std::size_t resident = resident_bytes();
  for (unsigned i = first; i < first + rounds; ++i) act(i);
  EXPECT_EQ(open_descriptors(), descriptors);
  EXPECT_LE(resident_bytes(), resident + memory);
}

Background::Background(std::function<int()> call)
    : thread_([this, call = std::move(call)] {
        tid_ = gettid();
        const int result = call();
        const std::lock_guard lock(mutex_);
        result_ = result;
        done_ = true;
        changed_.notify_all();
      }) {}

bool Background::waits() {
  EXPECT_TRUE(eventually([this] { return done_ || (tid_ != 0 && is_asleep(tid_)); }));
  return !done_;
}

bool Background::done_within(std::chrono::milliseconds limit) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, limit, [this] { return done_.load(); });
}

int Background::result() {
  EXPECT_TRUE(done_within(kPatience));
  const std::lock_guard lock(mutex_);
  return result_;
}

}  // namespace vantrel::test
