// SPDX-License-Identifier: LGPL-2.1-or-later
#include <algorithm>

#include "config/handlers.h"
#include "config/log_pid.h"
#include "demux/change.h"
#include "demux/stream_table.h"
#include "events/senders.h"
#include "instance/instance.h"
#include "instance/log.h"

namespace vantrel {
namespace {

/// Frees the first caption slot that holds the PID.
void free_caption_slot(GstVantrel* self, guint pid) {
  std::lock_guard lock(self->stream_lock);
  const auto slot = std::find(self->isdb_pids.begin(), self->isdb_pids.end(), pid);
  if (slot != self->isdb_pids.end()) *slot = 0;
}

StreamPtr subtitle_on(GstVantrel* self, guint pid) {
  std::lock_guard lock(self->stream_lock);
  for (const StreamPtr& stream : streams_locked(self))
    if (stream->pid == pid && stream->content == STREAM_CONTENT_SUBTITLE) return stream;
  return nullptr;
}

/// Whether "clear-pvr-record" of the PID removes the stream; logged.
bool is_recorded(GstVantrel* self, const StreamPtr& stream, guint pid) {
  constexpr const char* kName = "set_prop_demux_clear_pvr_rec";
  std::lock_guard lock(self->stream_lock);
  LOG_DEBUG_AS(kName, "search  VANTREL_CLEAR_PVR_REC pid: %d, dmx_type: %d", pid, stream->dmx_type);
  const bool recorded =
      stream->dmx_type == DMX_TYPE_DTV_RECORD || self->dmx_type == DMX_TYPE_ATV_RECORD;
  if (!recorded || stream->pid != pid) return false;
  LOG_DEBUG_AS(kName, "removed VANTREL_CLEAR_PVR_REC pid: %d", pid);
  return true;
}

void forget_decoder(GstVantrel* self) {
  std::lock_guard lock(self->stream_lock);
  self->videodec_device.reset();
}

}  // namespace

void set_prop_demux_vpid_sub_stop(GstVantrel* self, guint id, const GValue* value) {
  std::lock_guard lock(self->demux_lock);
  const gboolean stop = g_value_get_boolean(value);
  LOG_ERROR("[%s(%d)] stop_hfr2pid(%d)", vantrel_get_property_name(id), id, stop);
  if (!stop) return;
  const StreamPtr stream = first_stream(self, STREAM_CONTENT_VIDEO_SUB);
  if (stream == nullptr) return;
  remove_stream(self, stream);
  gst_tv_ts_demux_HFR_2PID_event(self, HFR_2PID_STOP);
  forget_decoder(self);
}

void set_prop_demux_stop_isdbpid(GstVantrel* self, guint id, const GValue* value) {
  std::lock_guard lock(self->demux_lock);
  const guint pid = g_value_get_uint(value);
  const StreamPtr stream = subtitle_on(self, pid);
  if (stream == nullptr) return;
  free_caption_slot(self, pid);
  remove_stream(self, stream);
  LOG_INFO("[%s(%d)] success, pid : 0x%x(%d)", vantrel_get_property_name(id), id, pid, pid);
}

void set_prop_demux_clear_pvr_rec(GstVantrel* self, guint id, const GValue* value) {
  const guint pid = g_value_get_uint(value);
  log_pid(__func__, id, pid);
  std::lock_guard lock(self->demux_lock);
  for (const StreamPtr& stream : stream_snapshot(self))
    if (is_recorded(self, stream, pid)) remove_stream(self, stream);
}

void set_prop_demux_ad_mode(GstVantrel* self, guint, const GValue* value) {
  if (!self->devices_created || g_value_get_boolean(value)) return;
  std::lock_guard lock(self->demux_lock);
  self->audio_codec_sub = 0;
  if (const StreamPtr stream = first_stream(self, STREAM_CONTENT_AUDIO_DESC))
    remove_stream(self, stream);
}

}  // namespace vantrel
