// SPDX-License-Identifier: LGPL-2.1-or-later
#include "config/handlers.h"
#include "config/properties.h"
#include "config/video_codec.h"
#include "demux/change.h"
#include "demux/pes_filter.h"
#include "demux/stream_table.h"
#include "events/senders.h"
#include "instance/instance.h"
#include "instance/log.h"

namespace vantrel {
namespace {

void store_name(GstVantrel* self, std::optional<std::string> VantrelState::*field,
                const gchar* name) {
  std::lock_guard lock(self->stream_lock);
  if (name != nullptr)
    self->*field = name;
  else
    (self->*field).reset();
}

/// Programs the stream for the decoder now named, unless it was handed over
/// programmed.
void use_decoder(GstVantrel* self, GstTvTsDemuxStreamContent content) {
  if (self->fastboot_videodec_flag.exchange(FALSE) != TRUE) gst_tv_ts_demux_set_vpid(self, content);
}

void flush_decoder(GstVantrel* self, const StreamPtr& stream) {
  if (contains(kVideoContents, stream->content))
    gst_vantrel_flush_video_event(self, stream);
  else if (contains(kAudioContents, stream->content))
    gst_vantrel_flush_audio_event(self, stream);
}

/// Restarts the playback of a recording for a new codec.
void gst_tv_ts_demux_sequence_playback(GstVantrel* self) {
  gst_tv_ts_demux_stop_dvr_event(self);
  visit_streams(self, kAllContents, gst_tv_ts_demux_stop_demux);
  for (const StreamPtr& stream : stream_snapshot(self)) flush_decoder(self, stream);
  visit_streams(self, kAllContents, gst_tv_ts_demux_start_demux);
  gst_tv_ts_demux_start_dvr_event(self);
  LOG_INFO("playback change sequence done!!");
}

}  // namespace

void set_prop_demux_videodec_device(GstVantrel* self, guint id, const GValue* value) {
  const gchar* name = g_value_get_string(value);
  store_name(self, &VantrelState::videodec_device, name);
  LOG_SYSTEM_INFO("[%s(%d)] device[%s]", vantrel_get_property_name(id), id, name);
  use_decoder(self, STREAM_CONTENT_VIDEO);
}

void set_prop_demux_videodec_device_sub(GstVantrel* self, guint id, const GValue* value) {
  const gchar* name = g_value_get_string(value);
  store_name(self, &VantrelState::videodec_device_sub, name);
  LOG_ERROR("[%s(%d)] device[%s]", vantrel_get_property_name(id), id, name);
  use_decoder(self, STREAM_CONTENT_VIDEO_SUB);
  gst_tv_ts_demux_HFR_2PID_event(self, HFR_2PID_START);
}

void set_prop_demux_video_codec_type(GstVantrel* self, guint, const GValue* value) {
  self->video_codec_type = gst_tv_ts_demux_convert_v4l2_video_codec_type(g_value_get_int(value));
  gst_tv_ts_demux_videodec_info_event(self);
  if (self->dmx_type == DMX_TYPE_PVR_PLAYBACK) gst_tv_ts_demux_sequence_playback(self);
}

}  // namespace vantrel
