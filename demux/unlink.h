// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <gst/gst.h>

namespace vantrel {

// Unlink functions of the source pads: they stop the filters that feed the
// decoder which is going away. The framework calls them with the object locks
// of both pads held, so they take stream_lock and touch no pad, and find the
// element by the parent argument.

/// Stops video, second video and PCR.
void gst_tv_ts_demux_video_srcpad_unlink(GstPad* pad, GstObject* parent);
/// Stops audio; and PCR while the element is paused.
void gst_tv_ts_demux_audio_srcpad_unlink(GstPad* pad, GstObject* parent);
/// Stops audio description.
void gst_tv_ts_demux_audiosub_srcpad_unlink(GstPad* pad, GstObject* parent);

}  // namespace vantrel
