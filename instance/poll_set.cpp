// SPDX-License-Identifier: LGPL-2.1-or-later
#include "instance/poll_set.h"

namespace vantrel {

std::shared_ptr<PollSet> PollSet::create() {
  GstPoll* poll = gst_poll_new(TRUE);
  return poll != nullptr ? std::shared_ptr<PollSet>(new PollSet(poll)) : nullptr;
}

void PollSet::begin_flushing() {
  std::lock_guard lock(mutex_);
  if (flushing_++ == 0) gst_poll_set_flushing(poll_, TRUE);
}

void PollSet::end_flushing() {
  std::lock_guard lock(mutex_);
  if (--flushing_ == 0) gst_poll_set_flushing(poll_, FALSE);
}

}  // namespace vantrel
