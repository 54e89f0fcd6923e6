// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/core/node_reader.h"

#include <fcntl.h>
#include <qel/device.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>
#include <vector>

#include "tools/core/failure.h"

namespace tools {
namespace {

constexpr std::size_t kReadSize = 256 * 1024;
/// Behind the end of a live stream nobody waits for readers; they get so long.
constexpr auto kLastRead = std::chrono::seconds(5);
constexpr auto kNoData = std::chrono::milliseconds(200);

}  // namespace

NodeReader::NodeReader(const char* name, Take take)
    : name_(name), take_(std::move(take)), fd_(qel_device_open(name, O_RDONLY)) {
  if (fd_ < 0) throw Failure(Status::kFailed, name_ + ": " + std::strerror(errno));
  thread_ = std::thread([this, fd = fd_] { read(fd); });
}

NodeReader::~NodeReader() { stop(); }

void NodeReader::read(int fd) {
  std::vector<char> buffer(kReadSize);
  for (;;) {
    const ssize_t count = qel_device_read(fd, buffer.data(), buffer.size());
    if (count < 0 && errno == EOVERFLOW) continue;
    if (count <= 0) break;
    bytes_ += static_cast<std::uint64_t>(count);
    if (failed_) continue;
    try {
      take_({buffer.data(), static_cast<std::size_t>(count)});
    } catch (...) {
      thrown_ = std::current_exception();
      failed_ = true;
    }
  }
  std::lock_guard lock(mutex_);
  ended_ = true;
  end_.notify_all();
}

void NodeReader::stop() {
  if (fd_ < 0) return;
  qel_device_close(name_.c_str(), std::exchange(fd_, -1));
  thread_.join();
}

void NodeReader::close() {
  {
    std::unique_lock lock(mutex_);
    end_.wait_for(lock, bytes_ > 0 ? kLastRead : kNoData, [this] { return ended_; });
  }
  stop();
  if (thrown_) std::rethrow_exception(std::exchange(thrown_, nullptr));
}

}  // namespace tools
