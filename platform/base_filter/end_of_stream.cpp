// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/base_filter/end_of_stream.h"

#include <utility>

namespace qel {
namespace {

/// Looks at a snapshot of the pads: unlink functions run with pads locked and
/// may want the element.
bool has_linked_source_pad(GstElement* element) {
  gboolean linked = FALSE;
  const auto look = [](GstElement*, GstPad* pad, gpointer found) -> gboolean {
    *static_cast<gboolean*>(found) |= gst_pad_is_linked(pad);
    return TRUE;
  };
  gst_element_foreach_src_pad(element, look, &linked);
  return linked;
}

}  // namespace

void EndOfStream::arrived(guint32 seqnum) {
  const std::lock_guard lock(mutex_);
  arriving_ = true;
  seqnum_ = seqnum;
}

void EndOfStream::passed() {
  guint32 seqnum;
  {
    const std::lock_guard lock(mutex_);
    if (!std::exchange(arriving_, false)) return;  // flushed meanwhile
    arrived_ = true;
    if (!playing_) return;
    seqnum = seqnum_;
  }
  announce(seqnum);
}

void EndOfStream::forget() {
  {
    const std::lock_guard lock(mutex_);
    arriving_ = arrived_ = false;
  }
  set_sink_flag(false);
}

void EndOfStream::set_playing(bool playing) {
  guint32 seqnum;
  {
    const std::lock_guard lock(mutex_);
    playing_ = playing;
    if (!playing || !arrived_) return;
    seqnum = seqnum_;
  }
  announce(seqnum);
}

void EndOfStream::announce(guint32 seqnum) {
  const bool is_sink = !has_linked_source_pad(element_);
  // Before the message: the bin counts its sinks when it gets one.
  set_sink_flag(is_sink);
  if (!is_sink) return;
  GstMessage* message = gst_message_new_eos(GST_OBJECT_CAST(element_));
  gst_message_set_seqnum(message, seqnum);
  gst_element_post_message(element_, message);
}

/// Leaves a flag alone that the subclass set itself.
void EndOfStream::set_sink_flag(bool on) {
  const std::lock_guard lock(mutex_);
  GST_OBJECT_LOCK(element_);
  if (on && !GST_OBJECT_FLAG_IS_SET(element_, GST_ELEMENT_FLAG_SINK)) {
    GST_OBJECT_FLAG_SET(element_, GST_ELEMENT_FLAG_SINK);
    flagged_ = true;
  } else if (!on && flagged_) {
    GST_OBJECT_FLAG_UNSET(element_, GST_ELEMENT_FLAG_SINK);
    flagged_ = false;
  }
  GST_OBJECT_UNLOCK(element_);
}

}  // namespace qel
