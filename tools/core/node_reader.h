// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace tools {

/// A thread that reads a port or a record node to its end.
class NodeReader {
 public:
  using Take = std::function<void(std::string_view)>;

  /// `name` as "vdec0" or "qel_dvr0". `take` runs in the thread; when it throws,
  /// nothing more is taken, the node is read on, and close() throws that again.
  NodeReader(const char* name, Take take);
  ~NodeReader();
  NodeReader(const NodeReader&) = delete;
  NodeReader& operator=(const NodeReader&) = delete;

  /// Waits until the end of the stream has been read, or ends the reading of a
  /// node that never had data.
  void close();

  [[nodiscard]] const std::string& name() const { return name_; }
  [[nodiscard]] std::uint64_t bytes() const { return bytes_; }
  [[nodiscard]] bool has_failed() const { return failed_; }

 private:
  void read(int fd);
  void stop();

  std::string name_;
  Take take_;
  int fd_;
  std::atomic<std::uint64_t> bytes_{0};
  std::atomic<bool> failed_{false};
  std::mutex mutex_;           // guards the next one
  bool ended_ = false;         // the thread has seen the end
  std::condition_variable end_;
  std::exception_ptr thrown_;  // the thread's until it is joined
  std::thread thread_;
};

}  // namespace tools
