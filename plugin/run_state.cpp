// SPDX-License-Identifier: LGPL-2.1-or-later
#include "demux/pes_filter.h"
#include "demux/sticky_events.h"
#include "demux/stream_table.h"
#include "events/senders.h"
#include "instance/instance.h"
#include "instance/log.h"
#include "plugin/lifecycle.h"

namespace vantrel {
namespace {

constexpr const char* kPesStart = "gst_vantrel_pes_start";

/// Programs one stream, unless its decoder's naming will. The index in the log
/// is that of the record in the table as it stands.
bool program_stream(GstVantrel* self, const StreamPtr& stream) {
  if (self->dmx_type == DMX_TYPE_PVR_PLAYBACK && stream->content == STREAM_CONTENT_VIDEO) {
    LOG_INFO_AS(kPesStart, "start the demuxer when try-decode in playback case");
    return true;
  }
  std::lock_guard operation(self->demux_lock);
  std::lock_guard lock(self->stream_lock);
  const int index = stream_index_locked(self, stream.get());
  if (index < 0) return true;  // removed since the walk began
  if (gst_tv_ts_demux_program_demux(self, stream.get()) == TRUE) return true;
  LOG_DEBUG_AS(kPesStart, "failed to create demux device %i", index);
  return false;
}

/// Pushes without demux_lock: a decoder may wait for a thread that needs it.
bool start_streams(GstVantrel* self) {
  for (const StreamPtr& stream : stream_snapshot(self)) {
    if (!program_stream(self, stream)) return false;
    if (const PadRef pad = stream_pad(self, stream)) deliver_stored_events(self, pad.get());
    gst_vantrel_push_3d_event(self, stream);
    gst_vantrel_push_admode_event(self, stream);
  }
  if (self->spts_srcpad) deliver_stored_events(self, self->spts_srcpad.get());
  return true;
}

void stop_streams(GstVantrel* self) {
  std::lock_guard lock(self->demux_lock);
  if (!self->devices_created) return;
  visit_streams(self, kAllContents, gst_tv_ts_demux_stop_demux);
}

}  // namespace
}  // namespace vantrel

gboolean gst_vantrel_pes_start(GstTvBaseFilter* filter) {
  auto* self = static_cast<GstVantrel*>(filter);
  PERF_BEGIN();
  if (self->paused) {
    LOG_DEBUG("[GST_VANTREL]denuxer pause--->start success ***************************");
    self->paused = FALSE;
    return TRUE;
  }
  if (!vantrel::start_streams(self)) return FALSE;
  self->paused = FALSE;
  LOG_DEBUG("[GST_VANTREL]demuxer start success ***************************");
  PERF_END();
  return TRUE;
}

gboolean gst_vantrel_pes_stop(GstTvBaseFilter* filter) {
  auto* self = static_cast<GstVantrel*>(filter);
  PERF_BEGIN();
  vantrel::stop_streams(self);
  self->paused = FALSE;
  PERF_END();
  return TRUE;
}

gboolean gst_vantrel_pes_pause(GstTvBaseFilter* filter) {
  PERF_BEGIN();
  static_cast<GstVantrel*>(filter)->paused = TRUE;
  PERF_END();
  return TRUE;
}

gboolean gst_vantrel_pes_resume(GstTvBaseFilter* filter) {
  PERF_BEGIN();
  static_cast<GstVantrel*>(filter)->paused = FALSE;
  PERF_END();
  return TRUE;
}

gboolean gst_vantrel_start(GstTvBaseFilter* filter) {
  LOG_SYSTEM_INFO("called");
  if (!gst_vantrel_pes_start(filter)) LOG_ERROR("gst_vantrel_pes_start fail");
  return TRUE;
}

gboolean gst_vantrel_stop(GstTvBaseFilter* filter) {
  LOG_SYSTEM_INFO("called");
  if (!gst_vantrel_pes_stop(filter)) LOG_ERROR("gst_vantrel_pes_stop fail");
  return TRUE;
}

gboolean gst_vantrel_pause(GstTvBaseFilter* filter) {
  LOG_SYSTEM_INFO("called");
  if (!gst_vantrel_pes_pause(filter)) LOG_ERROR("gst_vantrel_pes_pause fail");
  return TRUE;
}

gboolean gst_vantrel_resume(GstTvBaseFilter* filter) {
  LOG_SYSTEM_INFO("called");
  if (!gst_vantrel_pes_resume(filter)) LOG_ERROR("gst_vantrel_pes_resume fail");
  return TRUE;
}
