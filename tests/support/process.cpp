// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tests/support/process.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <string>

namespace vantrel::test {

bool is_asleep(int tid) {
  std::ifstream file("/proc/self/task/" + std::to_string(tid) + "/stat");
  const std::string text(std::istreambuf_iterator<char>(file), {});
  const auto end_of_name = text.rfind(')');
  return end_of_name != std::string::npos && text.compare(end_of_name + 1, 2, " S") == 0;
}

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
    std::fputs("deadlock\n", stderr);
    std::abort();
  }
  done.get();
}

std::string own_file(const std::string& name) {
  constexpr const char* kOwner = "VANTREL_TEST_PROCESS";
  setenv(kOwner, std::to_string(getpid()).c_str(), 0);
  return std::filesystem::temp_directory_path() / (name + "-" + std::getenv(kOwner));
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

Growth growth_by(unsigned first, unsigned rounds, const std::function<void(unsigned)>& act) {
  for (unsigned i = 0; i < first; ++i) act(i);
  const std::size_t descriptors = open_descriptors();
  const std::size_t bytes = resident_bytes();
  for (unsigned i = first; i < first + rounds; ++i) act(i);
  return {static_cast<long>(open_descriptors() - descriptors),
          static_cast<long>(resident_bytes() - bytes)};
}

}  // namespace vantrel::test
