// SPDX-License-Identifier: LGPL-2.1-or-later
#include "events/source_events.h"

#include <array>

#include "demux/pes_filter.h"
#include "demux/sticky_events.h"
#include "demux/stream_table.h"
#include "events/senders.h"
#include "instance/log.h"

namespace vantrel {
namespace {

constexpr const char* kSourceHandler = "gst_tv_ts_demux_handle_src_event";

bool is_pvr_playback(const GstVantrel* self) { return self->dmx_type == DMX_TYPE_PVR_PLAYBACK; }

constexpr guint kMainAudio = content_bit(STREAM_CONTENT_AUDIO);

/// Starts what a seek needs: everything at normal speed while audio is enabled,
/// else everything but the audio of PVR playback.
void gst_vantrel_flush_dmx_start(GstVantrel* self, gdouble rate) {
  PERF_BEGIN();
  const bool with_audio = rate == 1.0 && self->audio_dmx_enabled;
  const auto start = [&](GstTvTsDemuxStream* stream) {
    const bool stays_stopped = !with_audio && contains(kAudioContents, stream->content) &&
                               stream->dmx_type == DMX_TYPE_PVR_PLAYBACK;
    if (!stays_stopped) gst_tv_ts_demux_start_demux(stream);
  };
  if (self->devices_created) visit_streams(self, kAllContents, start);
  PERF_END();
}

void gst_vantrel_flush_dmx_stop(GstVantrel* self) {
  PERF_BEGIN();
  if (self->devices_created) visit_streams(self, kAllContents, gst_tv_ts_demux_stop_demux);
  PERF_END();
}

gboolean handle_seek(GstVantrel* self, GstEvent* event) {
  gdouble rate = 1.0;
  gst_event_parse_seek(event, &rate, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  if (is_pvr_playback(self)) gst_vantrel_flush_dmx_start(self, rate);
  const gboolean result = gst_pad_push_event(self->sinkpad, event);
  LOG_INFO_AS(kSourceHandler, "gst_tv_ts_demux_handle_src_event GST_EVENT_SEEK res: %d\n", result);
  return result;
}

void handle_audio_lock(GstVantrel* self, const GstStructure* structure) {
  guint lock = 0;
  gst_structure_get_uint(structure, "audio-lock", &lock);
  LOG_INFO_AS(kSourceHandler, "GST_EVENT_CUSTOM_UPSTREAM audio-lock [%d]", lock);
  gst_vantrel_push_audio_lock_event(self, lock);
}

gboolean boolean_of(const GstStructure* structure, const char* field) {
  gboolean value = FALSE;
  gst_structure_get_boolean(structure, field, &value);
  return value;
}

void handle_dvr_stop(GstVantrel* self, const GstStructure* structure) {
  if (!is_pvr_playback(self)) return;
  if (boolean_of(structure, "dvr-stop")) {
    gst_tv_ts_demux_stop_dvr_event(self);
    visit_streams(self, kMainAudio, gst_tv_ts_demux_stop_demux);
    LOG_INFO_AS(kSourceHandler, "GST_EVENT_CUSTOM_UPSTREAM dvr stop!");
  } else {
    visit_streams(self, kMainAudio, gst_tv_ts_demux_start_demux);
    gst_tv_ts_demux_start_dvr_event(self);
    LOG_INFO_AS(kSourceHandler, "GST_EVENT_CUSTOM_UPSTREAM dvr start!");
  }
}

void handle_dmx_stop(GstVantrel* self, const GstStructure* structure) {
  if (!is_pvr_playback(self)) return;
  const gboolean stop = boolean_of(structure, "dmx-stop");
  visit_streams(self, kMainAudio, [&](GstTvTsDemuxStream* stream) {
    self->audio_dmx_enabled = !stop;
    if (stop) {
      gst_tv_ts_demux_stop_demux(stream);
      LOG_INFO_AS(kSourceHandler, "GST_EVENT_CUSTOM_UPSTREAM dmx stop!");
    } else {
      gst_tv_ts_demux_start_demux(stream);
      LOG_INFO_AS(kSourceHandler, "GST_EVENT_CUSTOM_UPSTREAM dmx start!");
    }
  });
}

void handle_seek_audio(GstVantrel* self, const GstStructure*) {
  if (!is_pvr_playback(self)) return;
  visit_streams(self, kAudioContents, gst_tv_ts_demux_stop_demux);
  LOG_INFO_AS(kSourceHandler, "GST_EVENT_CUSTOM_UPSTREAM dmx-seek-audio!");
}

void handle_pts(GstVantrel* self, const GstStructure* structure) {
  guint pts = 0;
  gst_structure_get_uint(structure, "dmx-pts", &pts);
  LOG_INFO_AS(kSourceHandler, "dmx Received pts = [%u]", pts);
  gst_demux_audio_pts_pause_event(self, structure);
  LOG_INFO_AS(kSourceHandler, "demuxer pts pause");
}

/// A field that decoders send, its type, and what it does. The first row whose
/// field is present decides; a field of another type counts as absent.
struct UpstreamField {
  const char* name;
  GType type;
  void (*handle)(GstVantrel* self, const GstStructure* structure);
};

constexpr auto kUpstreamFields = std::to_array<UpstreamField>({
    {"audio-lock", G_TYPE_UINT, handle_audio_lock},
    {"dvr-stop", G_TYPE_BOOLEAN, handle_dvr_stop},
    {"dmx-stop", G_TYPE_BOOLEAN, handle_dmx_stop},
    {"dmx-seek-audio", G_TYPE_BOOLEAN, handle_seek_audio},
    {"dmx-pts", G_TYPE_UINT, handle_pts},
});

const UpstreamField* field_of(const GstStructure* structure) {
  if (structure == nullptr) return nullptr;
  for (const UpstreamField& row : kUpstreamFields)
    if (gst_structure_has_field_typed(structure, row.name, row.type)) return &row;
  return nullptr;
}

void forward_upstream(GstVantrel* self, GstEvent* event) {
  if (is_pvr_playback(self)) gst_vantrel_flush_dmx_stop(self);
  const gboolean result = gst_pad_push_event(self->sinkpad, event);
  LOG_INFO_AS(kSourceHandler,
              "gst_tv_ts_demux_handle_src_event GST_EVENT_CUSTOM_UPSTREAM res: %d\n", result);
}

gboolean handle_custom(GstVantrel* self, GstEvent* event) {
  const GstStructure* structure = gst_event_get_structure(event);
  if (const UpstreamField* row = field_of(structure)) {
    row->handle(self, structure);
    gst_event_unref(event);
  } else {
    forward_upstream(self, event);
  }
  return FALSE;
}

gboolean handle_event(GstVantrel* self, GstPad* pad, GstEvent* event) {
  if (GST_EVENT_TYPE(event) == GST_EVENT_SEEK) return handle_seek(self, event);
  if (GST_EVENT_TYPE(event) == GST_EVENT_CUSTOM_UPSTREAM) return handle_custom(self, event);
  // Sent when the pad is linked: the new peer has missed what was sent before.
  if (GST_EVENT_TYPE(event) == GST_EVENT_RECONFIGURE) deliver_stored_events(self, pad);
  gst_event_unref(event);
  return TRUE;
}

}  // namespace

gboolean gst_tv_ts_demux_handle_src_event(GstPad* pad, GstObject*, GstEvent* event) {
  PERF_BEGIN();
  const auto parent = ObjectRef<GstObject>::take(gst_object_get_parent(GST_OBJECT(pad)));
  if (!parent) {
    gst_event_unref(event);
    return FALSE;
  }
  LOG_DEBUG("received event %d, %s", GST_EVENT_TYPE(event), GST_EVENT_TYPE_NAME(event));
  auto* self = reinterpret_cast<GstVantrel*>(parent.get());
  const gboolean result = handle_event(self, pad, event);
  PERF_END();
  return result;
}

}  // namespace vantrel
