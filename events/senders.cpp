// SPDX-License-Identifier: LGPL-2.1-or-later
#include "events/senders.h"

#include "demux/sticky_events.h"
#include "demux/stream_table.h"
#include "instance/log.h"

namespace vantrel {
namespace {

GstStructure* boolean_structure(const char* name, const char* field, bool value) {
  return gst_structure_new(name, field, G_TYPE_BOOLEAN, value, nullptr);
}

void push_feed(GstVantrel* self, bool start) {
  GstEvent* event = gst_event_new_custom(GST_EVENT_CUSTOM_UPSTREAM,
                                         boolean_structure("dvr-start", "dvr-start-feed", start));
  gst_pad_push_event(self->sinkpad, event);
}

/// Who pushes, and the lines for an event that does not arrive.
struct Report {
  const char* function;
  int priority;
  const char* refused;
  const char* not_linked;
};

/// Pushes a custom downstream out-of-band event with `structure` on the
/// stream's pad; frees the structure where there is no linked pad.
void push_to_decoder(GstVantrel* self, const StreamPtr& stream, GstStructure* structure,
                     const Report& report) {
  const char* failure = nullptr;
  const PadRef pad = stream_pad(self, stream);
  if (!pad || !gst_pad_is_linked(pad.get())) {
    gst_structure_free(structure);
    failure = report.not_linked;
  } else if (!gst_pad_push_event(
                 pad.get(), gst_event_new_custom(GST_EVENT_CUSTOM_DOWNSTREAM_OOB, structure))) {
    failure = report.refused;
  }
  if (failure != nullptr)
    VANTREL_LOG(QEL_LOG_BUFFER_MAIN, report.priority, report.function, "%s", failure);
}

/// An event that waits on a thread of the framework's for its pad.
struct WaitingPush {
  PadRef pad;
  GstEvent* event;
};

/// Takes the structure where the stream's pad is linked and blocked; false
/// elsewhere.
bool push_when_unblocked(GstVantrel* self, const StreamPtr& stream, GstStructure* structure) {
  const PadRef pad = stream_pad(self, stream);
  if (!pad || !gst_pad_is_linked(pad.get()) || !is_blocked(pad.get())) return false;
  auto* waiting =
      new WaitingPush{pad, gst_event_new_custom(GST_EVENT_CUSTOM_DOWNSTREAM_OOB, structure)};
  const auto push = [](GstElement*, gpointer data) {
    auto* ready = static_cast<WaitingPush*>(data);
    gst_pad_push_event(ready->pad.get(), ready->event);
  };
  gst_element_call_async(as_element(self), push, waiting,
                         [](gpointer data) { delete static_cast<WaitingPush*>(data); });
  return true;
}

/// The announcement at start, on streams of one content while `flag` is set.
struct CodecInfo {
  const char* function;
  GstTvTsDemuxStreamContent content;
  Shared<guint> VantrelState::*flag;
  const char* field;
};

constexpr CodecInfo kVideoSubInfo = {"gst_vantrel_push_3d_event", STREAM_CONTENT_VIDEO_SUB,
                                     &VantrelState::video_codec_sub, "video-codec-sub"};
constexpr CodecInfo kAudioDescInfo = {"gst_vantrel_push_admode_event", STREAM_CONTENT_AUDIO_DESC,
                                      &VantrelState::audio_codec_sub, "audio-codec-sub"};

void push_codec_info(GstVantrel* self, const StreamPtr& stream, const CodecInfo& info) {
  if (self->*info.flag == 0 || stream->content != info.content) return;
  GstStructure* structure = boolean_structure("codec-info", info.field, true);
  // A blocked pad is not to hold the change of state.
  if (push_when_unblocked(self, stream, structure)) return;
  push_to_decoder(self, stream, structure,
                  {info.function, QEL_LOG_INFO, "failed to push event", "pad not linked!!!"});
}

void push_flush(GstVantrel* self, const StreamPtr& stream, const char* function, const char* name) {
  LOG_DEBUG_AS(function, "[PERF_CHECK][BEGIN]");
  LOG_INFO_AS(function, "send %s event", name);
  push_to_decoder(self, stream, boolean_structure(name, name, true),
                  {function, QEL_LOG_INFO, "gst_pad_push_event fail!", "pad is not linked!"});
  LOG_DEBUG_AS(function, "[PERF_CHECK][END]");
}

std::optional<std::string> decoder_name(GstVantrel* self,
                                        std::optional<std::string> VantrelState::*name) {
  std::lock_guard lock(self->stream_lock);
  return self->*name;
}

/// The structure of a two-PID event, logged; NULL where there is none to send.
GstStructure* hfr_structure(GstVantrel* self, gint mode) {
  constexpr const char* kName = "gst_tv_ts_demux_HFR_2PID_event";
  constexpr const char* kStructure = "video-decodec-hfr2pid";
  if (mode == HFR_2PID_MODE) {
    LOG_ERROR_AS(kName, "send event to videodec: hfr2pid-mode[TRUE]");
    return boolean_structure(kStructure, "hfr2pid-mode", true);
  }
  if (mode == HFR_2PID_STOP) {
    LOG_ERROR_AS(kName, "send event to videodec: hfr2pid-stop[TRUE]");
    return boolean_structure(kStructure, "hfr2pid-stop", true);
  }
  if (mode != HFR_2PID_START) {
    LOG_ERROR_AS(kName, "does not send event to videodec");
    return nullptr;
  }
  const auto second = decoder_name(self, &VantrelState::videodec_device_sub);
  if (!second) {
    LOG_INFO_AS(kName, "videodec_device is NULL");
    return nullptr;
  }
  LOG_ERROR_AS(kName, "send event to videodec: hfr2pid-start[TRUE], videodec-device_sub[%s]",
               second->c_str());
  return gst_structure_new(kStructure, "hfr2pid-start", G_TYPE_BOOLEAN, TRUE, "videodec-device-sub",
                           G_TYPE_STRING, second->c_str(), nullptr);
}

}  // namespace

gboolean gst_tv_ts_demux_start_dvr_event(GstVantrel* self) {
  push_feed(self, true);
  LOG_INFO("dvr-start event push done, start:TRUE!!!");
  return TRUE;
}

gboolean gst_tv_ts_demux_stop_dvr_event(GstVantrel* self) {
  push_feed(self, false);
  LOG_INFO("dvr-start event push done, start:FALSE!!!");
  return TRUE;
}

void gst_tv_ts_demux_HFR_2PID_event(GstVantrel* self, gint mode) {
  const StreamPtr video = first_stream(self, STREAM_CONTENT_VIDEO);
  if (video == nullptr) {
    LOG_INFO("vpid was not set");
    return;
  }
  GstStructure* structure = hfr_structure(self, mode);
  if (structure == nullptr) return;
  push_to_decoder(self, video, structure,
                  {__func__, QEL_LOG_ERROR, "failed to push event", "pad is not linked"});
}

void gst_vantrel_push_3d_event(GstVantrel* self, const StreamPtr& stream) {
  push_codec_info(self, stream, kVideoSubInfo);
}

void gst_vantrel_push_admode_event(GstVantrel* self, const StreamPtr& stream) {
  push_codec_info(self, stream, kAudioDescInfo);
}

void gst_vantrel_flush_video_event(GstVantrel* self, const StreamPtr& stream) {
  push_flush(self, stream, __func__, "flush-video");
}

void gst_vantrel_flush_audio_event(GstVantrel* self, const StreamPtr& stream) {
  push_flush(self, stream, __func__, "flush-audio");
}

void gst_tv_ts_demux_videodec_info_event(GstVantrel* self) {
  const auto device = decoder_name(self, &VantrelState::videodec_device);
  if (!device) {
    LOG_INFO("videodec_device is NULL");
    return;
  }
  const StreamPtr video = first_stream(self, STREAM_CONTENT_VIDEO);
  if (video == nullptr) {
    LOG_INFO("vpid was not set");
    return;
  }
  const guint codec = self->video_codec_type;
  GstStructure* structure =
      gst_structure_new("video-decode-info", "videodec-device", G_TYPE_STRING, device->c_str(),
                        "video-codec-type", G_TYPE_UINT, codec, nullptr);
  LOG_INFO("send event to videodec: videodec_device[%s], video_codec_type[0x%X]", device->c_str(),
           codec);
  push_to_decoder(self, video, structure,
                  {__func__, QEL_LOG_INFO, "failed to push event", "pad is not linked"});
}

void gst_vantrel_push_audio_lock_event(GstVantrel* self, guint audio_lock) {
  for (const StreamPtr& stream : stream_snapshot(self)) {
    if (stream->content != STREAM_CONTENT_VIDEO) continue;
    push_to_decoder(self, stream, boolean_structure("audio-info", "audio-lock", audio_lock != 0),
                    {__func__, QEL_LOG_INFO, "failed to push event", "pad not linked!!!"});
  }
}

void gst_demux_audio_pts_pause_event(GstVantrel* self, const GstStructure* received) {
  PERF_BEGIN();
  for (const StreamPtr& stream : stream_snapshot(self)) {
    if (!contains(kAudioContents, stream->content)) continue;
    LOG_INFO("send audio-pts-pause event");
    GstStructure* copy = gst_structure_copy(received);
    guint pts = 0;
    gst_structure_get_uint(copy, "dmx-pts", &pts);
    LOG_INFO("structure_new pts = [%u]", pts);
    push_to_decoder(self, stream, copy, {__func__, QEL_LOG_INFO, nullptr, "pad is not linked!"});
  }
  PERF_END();
}

}  // namespace vantrel
