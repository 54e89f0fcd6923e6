// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tools/report/report.h"

namespace report {

/// Decodes pictures of several videos at a time, small enough for a page, while
/// the stream is read on.
class PictureQueue {
 public:
  /// The beginning of the elementary stream on a PID, which stays as it is until
  /// finish().
  void add(unsigned pid, const std::string* stream, unsigned stream_type);
  /// Waits for all of them. By PID.
  std::map<unsigned, Snapshot> finish();

 private:
  struct Video {
    unsigned pid;
    const std::string* stream;
    unsigned stream_type;
  };

  void work();

  std::mutex mutex_;  // guards the three below
  std::deque<Video> waiting_;
  std::map<unsigned, Snapshot> snapshots_;
  std::size_t running_ = 0;
  std::vector<std::jthread> threads_;  // last: they use all of the above
};

}  // namespace report
