// SPDX-License-Identifier: LGPL-2.1-or-later
#include "events/sink_events.h"

#include <array>
#include <chrono>

#include "demux/change.h"
#include "demux/sticky_events.h"
#include "instance/instance.h"
#include "instance/log.h"
#include "instance/reader_thread.h"

namespace vantrel {
namespace {

constexpr const char* kSinkHandler = "gst_tv_ts_demux_handle_sink_event";

/// A stream that upstream may announce, by the fields that carry its codec id
/// and its PID.
struct Announcement {
  const char* codec_field;
  const char* pid_field;
  GstTvTsDemuxStreamContent content;
  bool logs_codec;
};

constexpr auto kAnnouncements = std::to_array<Announcement>({
    {"video-codec", "video-pid", STREAM_CONTENT_VIDEO, false},
    {"video-codec-sub", "video-pid", STREAM_CONTENT_VIDEO_SUB, false},
    {"audio-codec", "audio-pid", STREAM_CONTENT_AUDIO, true},
    {"ancillary-codec", "ancillary-pid", STREAM_CONTENT_SUBTITLE, true},
});

void announce(GstVantrel* self, const GstStructure* structure, const Announcement& row) {
  gint codec = 0;
  gint pid = 0;
  if (!gst_structure_get_int(structure, row.codec_field, &codec) ||
      !gst_structure_get_int(structure, row.pid_field, &pid) || pid == 0)
    return;
  if (row.logs_codec)
    LOG_DEBUG_AS(kSinkHandler, "pid %d codec %d\n", pid, codec);
  else
    LOG_DEBUG_AS(kSinkHandler, "pid %d\n", pid);
  if (row.content == STREAM_CONTENT_VIDEO_SUB) self->video_codec_sub = 1;
  gst_tv_ts_demux_change_stream(self, row.content, static_cast<guint>(pid),
                                static_cast<guint>(codec));
}

void handle_announcement(GstVantrel* self, GstEvent* event) {
  if (const GstStructure* structure = gst_event_get_structure(event))
    for (const Announcement& row : kAnnouncements) announce(self, structure, row);
  gst_event_unref(event);
}

/// Waits until `lock` is free of the emission that `emitting` tells of, or the
/// pad flushes. Looked at every few milliseconds, since flushing wakes nobody.
template <typename Emitting>
void wait_for_emission(GstPad* pad, std::mutex& lock, std::condition_variable& done,
                       Emitting&& emitting) {
  std::unique_lock guard(lock);
  while (emitting() && !GST_PAD_IS_FLUSHING(pad))
    done.wait_for(guard, std::chrono::milliseconds(5));
}

/// At the end of a stream the nodes are empty; what was read last may still be
/// with its handler. When EOS passes, that is over too.
void finish_emissions(GstVantrel* self, GstPad* pad) {
  if (on_reader_thread_of(self)) return;
  wait_for_emission(pad, self->section_lock, self->emission_done,
                    [&] { return self->section_emitting; });
  wait_for_emission(pad, self->stream_lock, self->data_emission_done,
                    [&] { return self->data_emissions != 0; });
}

gboolean handle_other(GstVantrel* self, GstPad* pad, GstEvent* event) {
  LOG_DEBUG_AS(kSinkHandler, "event not handle by sink");
  if (GST_EVENT_TYPE(event) == GST_EVENT_EOS) finish_emissions(self, pad);
  // The source pads are streams of their own; upstream's id is not theirs.
  if (GST_EVENT_TYPE(event) == GST_EVENT_STREAM_START) {
    // The framework stores it afterwards: too late for the ids made from it.
    gst_pad_store_sticky_event(pad, event);
    announce_stream_start(self);
    gst_event_unref(event);
    return TRUE;
  }
  return gst_pad_event_default(pad, GST_OBJECT(self), event);
}

}  // namespace

gboolean gst_tv_ts_demux_handle_sink_event(GstPad* pad, GstObject*, GstEvent* event) {
  PERF_BEGIN();
  const auto parent = ObjectRef<GstObject>::take(gst_object_get_parent(GST_OBJECT(pad)));
  if (!parent) {
    gst_event_unref(event);
    return FALSE;
  }
  LOG_DEBUG("got event %s", GST_EVENT_TYPE_NAME(event));
  auto* self = reinterpret_cast<GstVantrel*>(parent.get());
  gboolean result = TRUE;
  if (GST_EVENT_TYPE(event) == GST_EVENT_CUSTOM_DOWNSTREAM_OOB)
    handle_announcement(self, event);
  else
    result = handle_other(self, pad, event);
  PERF_END();
  return result;
}

}  // namespace vantrel
