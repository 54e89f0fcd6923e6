// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <gst/gst.h>

#include <mutex>

namespace qel {

/// Makes an element without linked source pads the sink of its pipeline once
/// its stream has ended, as its data leaves the pipeline unseen.
///
/// Like any sink it tells the bin while PLAYING, and again whenever it comes
/// back to PLAYING with the stream still at its end: a bin forgets what it was
/// told when it pauses.
class EndOfStream {
 public:
  explicit EndOfStream(GstElement* element) : element_(element) {}

  /// EOS is at the sink pad. Streaming thread.
  void arrived(guint32 seqnum);
  /// It has passed: who leaves at the message misses nothing. Any thread.
  void passed();
  /// The stream goes on, or a new one begins.
  void forget();
  void set_playing(bool playing);

 private:
  void announce(guint32 seqnum);
  void set_sink_flag(bool on);

  GstElement* const element_;  // the owner
  std::mutex mutex_;           // guards all fields below; not held while posting
  bool arriving_ = false;
  bool arrived_ = false;
  bool playing_ = false;
  guint32 seqnum_ = GST_SEQNUM_INVALID;
  bool flagged_ = false;  // the element's SINK flag is ours
};

}  // namespace qel
