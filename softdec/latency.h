// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <gst/gst.h>

namespace softdec {

/// Answers LATENCY for what comes out of a receiver: what a live stream may come
/// late downstream, and the three seconds that a decoder's queue can hold.
inline void answer_latency(GstQuery* query, bool live) {
  constexpr GstClockTime kLatency = 200 * GST_MSECOND;
  constexpr GstClockTime kQueued = 3 * GST_SECOND;
  if (live) {
    gst_query_set_latency(query, TRUE, kLatency, kLatency + kQueued);
  } else {
    gst_query_set_latency(query, FALSE, 0, GST_CLOCK_TIME_NONE);
  }
}

}  // namespace softdec
