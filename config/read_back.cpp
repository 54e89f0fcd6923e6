// SPDX-License-Identifier: LGPL-2.1-or-later
#include <qel/device.h>

#include "config/handlers.h"
#include "config/video_codec.h"
#include "demux/stream_table.h"
#include "instance/instance.h"
#include "instance/log.h"

namespace vantrel {
namespace {

/// Characters of "pids", and of one entry of it, that readers get at most.
constexpr gsize kPidsLength = 49;
constexpr gsize kEntryLength = 19;

/// Names of the contents that are listed in "pids".
const char* listed_name(guint content) {
  if (content == STREAM_CONTENT_VIDEO) return "video";
  if (content == STREAM_CONTENT_AUDIO) return "audio";
  return content == STREAM_CONTENT_VIDEO_SUB ? "video-sub" : nullptr;
}

std::string list_pids(GstVantrel* self) {
  std::string list;
  visit_streams(self, kAllContents, [&](const GstTvTsDemuxStream* stream) {
    const char* name = listed_name(stream->content);
    if (name == nullptr) return;
    const std::string pid = std::to_string(static_cast<gint>(stream->pid));
    list += (std::string(name) + ':' + pid + '/').substr(0, kEntryLength);
  });
  return list.substr(0, kPidsLength);
}

void set_name(GstVantrel* self, GValue* value, std::optional<std::string> VantrelState::*field) {
  std::lock_guard lock(self->stream_lock);
  const auto& name = self->*field;
  g_value_set_string(value, name ? name->c_str() : nullptr);
}

}  // namespace

void get_prop_demux_multi_pids(GstVantrel* self, GValue* value) {
  g_value_set_string(value, list_pids(self).c_str());
}

void get_prop_demux_stc(GstVantrel* self, GValue* value) {
  std::lock_guard lock(self->stream_lock);
  for (const StreamPtr& stream : streams_locked(self)) {
    if (stream->fd <= 0) continue;
    self->stc.num = self->stc_num;
    qel_device_ioctl(stream->fd, KWRX_DMX_GET_STC, &self->stc);
    g_value_set_pointer(value, &self->stc);
    LOG_DEBUG("stc.base is  %d\n", self->stc.base);
    LOG_DEBUG("stc.num is %d\n", self->stc.num);
    return;
  }
}

void get_prop_demux_videodec_device(GstVantrel* self, GValue* value) {
  set_name(self, value, &VantrelState::videodec_device);
}

void get_prop_demux_videodec_device_sub(GstVantrel* self, GValue* value) {
  set_name(self, value, &VantrelState::videodec_device_sub);
}

void get_prop_demux_video_codec_type(GstVantrel* self, GValue* value) {
  g_value_set_int(value, gst_tv_ts_demux_convert_tvp_video_codec_type(self->video_codec_type));
}

}  // namespace vantrel
