// SPDX-License-Identifier: LGPL-2.1-or-later
#include <qel/marker.h>

#include "config/handlers.h"
#include "config/log_pid.h"
#include "demux/change.h"
#include "demux/stream_table.h"
#include "events/senders.h"
#include "instance/instance.h"
#include "instance/log.h"

namespace vantrel {
namespace {

// Codec ids that stand for a content where nothing names a better one.
constexpr guint kMpeg2Video = 2;
constexpr guint kH264Video = 3;
constexpr guint kHevcVideo = 4;
constexpr guint kAc3Audio = 9;

/// Brackets the work of a property with performance markers, on every path.
class MarkedProperty {
 public:
  MarkedProperty(const char* begin, const char* end) : end_(end) { qel_marker(begin); }
  ~MarkedProperty() { qel_marker(end_); }
  MarkedProperty(const MarkedProperty&) = delete;
  MarkedProperty& operator=(const MarkedProperty&) = delete;

 private:
  const char* end_;
};

#define MARKED_PROPERTY(name)                                                  \
  const MarkedProperty marked("[BEGIN]PER_gstvantrel::set_property(" name ")", \
                              "[END]PER_gstvantrel::set_property(" name ")")

/// While paused the PCR filter may have been stopped with the audio decoder
/// (background decoding): it is programmed again before audio comes back.
void restart_stopped_pcr(GstVantrel* self) {
  if (self->paused != TRUE) return;
  std::lock_guard operation(self->demux_lock);  // nobody changes the PID in between
  for (const StreamPtr& stream : stream_snapshot(self)) {
    guint pid = 0;
    {
      std::lock_guard lock(self->stream_lock);
      if (stream->content != STREAM_CONTENT_PCR || stream->running) continue;
      pid = stream->pid;
    }
    LOG_INFO_AS("set_prop_demux_apid", "[XQJ] PCR ON : DTV BG decoding OFF");
    gst_tv_ts_demux_change_stream(self, STREAM_CONTENT_PCR, pid, kH264Video);
  }
}

}  // namespace

void set_prop_demux_apid(GstVantrel* self, guint id, const GValue* value) {
  MARKED_PROPERTY("VANTREL_APID");
  const guint pid = g_value_get_uint(value);
  if (pid == 0) {
    LOG_DEBUG("VANTREL_APID pid can not be set as 0");
    return;
  }
  restart_stopped_pcr(self);
  log_pid(__func__, id, pid);
  gst_tv_ts_demux_change_stream(self, STREAM_CONTENT_AUDIO, pid, kAc3Audio);
}

void set_prop_demux_vpid(GstVantrel* self, guint id, const GValue* value) {
  MARKED_PROPERTY("VANTREL_VPID");
  const guint pid = g_value_get_uint(value);
  if (pid == 0) {
    LOG_ERROR("STREAM_CONTENT_VIDEO pid can not be set as 0");
    return;
  }
  log_pid(__func__, id, pid);
  gst_tv_ts_demux_change_stream(self, STREAM_CONTENT_VIDEO, pid, kMpeg2Video);
}

void set_prop_demux_vpid_sub(GstVantrel* self, guint id, const GValue* value) {
  const guint pid = g_value_get_uint(value);
  LOG_ERROR("[%s(%d)] PID : 0x%X(%d)", vantrel_get_property_name(id), id, pid, pid);
  if (pid == 0) {
    LOG_ERROR("STREAM_CONTENT_VIDEO_SUB pid can not be set as 0");
    return;
  }
  gst_tv_ts_demux_HFR_2PID_event(self, HFR_2PID_MODE);
  gst_tv_ts_demux_change_stream(self, STREAM_CONTENT_VIDEO_SUB, pid, kHevcVideo);
}

void set_prop_demux_pcrpid(GstVantrel* self, guint id, const GValue* value) {
  MARKED_PROPERTY("VANTREL_PCRPID");
  const guint pid = g_value_get_uint(value);
  if (pid == 0) {
    LOG_DEBUG("VANTREL_PCRPID pid can not be set as 0");
    return;
  }
  log_pid(__func__, id, pid);
  gst_tv_ts_demux_change_stream(self, STREAM_CONTENT_PCR, pid, kH264Video);
}

void set_prop_demux_adpid(GstVantrel* self, guint id, const GValue* value) {
  const guint pid = g_value_get_uint(value);
  log_pid(__func__, id, pid);
  self->audio_codec_sub = 1;
  gst_tv_ts_demux_change_stream(self, STREAM_CONTENT_AUDIO_DESC, pid, kAc3Audio);
}

void set_prop_demux_otherpid(GstVantrel* self, guint id, const GValue* value) {
  if (!is_record_mode(self->dmx_type)) return;
  const guint pid = g_value_get_uint(value);
  log_pid(__func__, id, pid);
  gst_tv_ts_demux_change_stream(self, STREAM_CONTENT_OTHER, pid, kTeletext);
}

}  // namespace vantrel
