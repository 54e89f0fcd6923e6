// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "instance/instance.h"

namespace vantrel {

// The custom events that the element sends. All push without stream_lock.

/// Asks upstream to feed the recording, or to stop feeding it. TRUE.
gboolean gst_tv_ts_demux_start_dvr_event(GstVantrel* self);
gboolean gst_tv_ts_demux_stop_dvr_event(GstVantrel* self);

/// Steps of the two-PID high-frame-rate mode, told to the video decoder.
enum HfrMode : gint { HFR_2PID_MODE = 0, HFR_2PID_START = 1, HFR_2PID_STOP = 2 };
void gst_tv_ts_demux_HFR_2PID_event(GstVantrel* self, gint mode);

/// At start: tells the decoder of a second video that there is one.
void gst_vantrel_push_3d_event(GstVantrel* self, const StreamPtr& stream);
/// At start: tells the decoder of audio description that there is one.
void gst_vantrel_push_admode_event(GstVantrel* self, const StreamPtr& stream);

/// Asks the stream's decoder to drop what it holds.
void gst_vantrel_flush_video_event(GstVantrel* self, const StreamPtr& stream);
void gst_vantrel_flush_audio_event(GstVantrel* self, const StreamPtr& stream);

/// Tells the video decoder its device and codec.
void gst_tv_ts_demux_videodec_info_event(GstVantrel* self);

/// Tells every video decoder whether the audio decoder is locked.
void gst_vantrel_push_audio_lock_event(GstVantrel* self, guint audio_lock);

/// Relays a received structure with "dmx-pts" to every audio decoder.
void gst_demux_audio_pts_pause_event(GstVantrel* self, const GstStructure* received);

}  // namespace vantrel
