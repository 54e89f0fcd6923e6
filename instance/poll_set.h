// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <gst/gst.h>

#include <memory>
#include <mutex>

namespace vantrel {

/// The section reader's poll set, with a flushing that counts.
///
/// Two threads may add and remove filters at once: the wait fails from the
/// first one's begin to the last one's end. Any thread.
class PollSet {
 public:
  /// Returns an empty pointer where no controllable set can be had.
  static std::shared_ptr<PollSet> create();
  ~PollSet() { gst_poll_free(poll_); }
  PollSet(const PollSet&) = delete;
  PollSet& operator=(const PollSet&) = delete;

  [[nodiscard]] GstPoll* get() const { return poll_; }

  void begin_flushing();
  void end_flushing();

 private:
  explicit PollSet(GstPoll* poll) : poll_(poll) {}

  GstPoll* const poll_;
  std::mutex mutex_;
  int flushing_ = 0;  // threads that flush; guarded by mutex_
};

}  // namespace vantrel
