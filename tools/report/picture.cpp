// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/report/picture.h"

#include <algorithm>

#include "tools/core/failure.h"
#include "tools/core/picture.h"

namespace report {
namespace {

constexpr int kWidest = 480;
constexpr unsigned kMostThreads = 8;

Snapshot snapshot_of(const std::string& stream, unsigned stream_type) {
  try {
    const tools::Picture picture = tools::decode_picture(stream, stream_type, kWidest);
    return {tools::encode_png(picture), picture.width, picture.height, ""};
  } catch (const tools::Failure& failure) {
    return {.png = {}, .reason = std::string("No picture: ") + failure.what() + "."};
  }
}

}  // namespace

void PictureQueue::add(unsigned pid, const std::string* stream, unsigned stream_type) {
  std::lock_guard lock(mutex_);
  waiting_.push_back({pid, stream, stream_type});
  if (running_ >= std::clamp(std::thread::hardware_concurrency(), 1U, kMostThreads)) return;
  running_++;
  threads_.emplace_back([this] { work(); });
}

void PictureQueue::work() {
  std::unique_lock lock(mutex_);
  while (!waiting_.empty()) {
    const Video video = waiting_.front();
    waiting_.pop_front();
    lock.unlock();
    Snapshot snapshot = snapshot_of(*video.stream, video.stream_type);
    lock.lock();
    snapshots_[video.pid] = std::move(snapshot);
  }
  running_--;
}

std::map<unsigned, Snapshot> PictureQueue::finish() {
  threads_.clear();
  return std::move(snapshots_);
}

}  // namespace report
