// SPDX-License-Identifier: LGPL-2.1-or-later
#include <array>

#include "softdec/codec.h"
#include "softdec/decoder.h"
#include "softdec/latency.h"
#include "softdec/stamp.h"

namespace softdec {
namespace {

bool is_named(GstEvent* event, const char* name) {
  const GstStructure* structure = gst_event_get_structure(event);
  return structure != nullptr && gst_structure_has_name(structure, name);
}

}  // namespace

// --- Source pad --------------------------------------------------------------

bool Decoder::activate_source(bool active) {
  active_ = active;
  place()->cancel(!active);
  queue_.set_flushing(!active);
  if (!active) return gst_pad_stop_task(source_) != FALSE;
  const auto task = [](gpointer self) { static_cast<Decoder*>(self)->push_one(); };
  return gst_pad_start_task(source_, task, this, nullptr) != FALSE;
}

/// Seeks and custom events are the demultiplexer's. A request for a key unit is
/// nothing it knows, and what it does not know stops its filters.
bool Decoder::source_event(GstEvent* event) {
  const GstEventType type = GST_EVENT_TYPE(event);
  const bool passes = type == GST_EVENT_SEEK ||
                      (type == GST_EVENT_CUSTOM_UPSTREAM && !is_named(event, "GstForceKeyUnit"));
  if (passes) return gst_pad_push_event(sink_, event) != FALSE;
  gst_event_unref(event);
  return true;
}

bool Decoder::source_query(GstQuery* query) {
  if (GST_QUERY_TYPE(query) != GST_QUERY_LATENCY)
    return gst_pad_query_default(source_, GST_OBJECT(element_), query) != FALSE;
  answer_latency(query, live_);
  return true;
}

// --- Sink pad ----------------------------------------------------------------

/// Segment and end of the demultiplexer's pad say nothing about what is in the
/// port: those downstream are the task's own.
bool Decoder::sink_event(GstEvent* event) {
  switch (GST_EVENT_TYPE(event)) {
    case GST_EVENT_FLUSH_START:
      begin_flush(event);
      return true;
    case GST_EVENT_FLUSH_STOP: {
      gboolean reset_time = TRUE;
      gst_event_parse_flush_stop(event, &reset_time);
      end_flush(event, reset_time != FALSE);
      return true;
    }
    case GST_EVENT_CUSTOM_DOWNSTREAM_OOB:
      return custom_event(event);
    case GST_EVENT_STREAM_START:
      on_stream_start();
      break;
    case GST_EVENT_CAPS:
      on_caps(event);
      break;
    case GST_EVENT_EOS:
      upstream_ended_ = true;
      wake_.raise();
      break;
    default:
      break;
  }
  gst_event_unref(event);
  return true;
}

void Decoder::on_stream_start() {
  upstream_ended_ = false;
  attach();
}

void Decoder::on_caps(GstEvent* event) {
  GstCaps* caps = nullptr;
  gst_event_parse_caps(event, &caps);
  {
    const std::lock_guard lock(setup_mutex_);
    announced_.reset(gst_caps_ref(caps));
  }
  attach();
}

// --- Flushes -----------------------------------------------------------------

void Decoder::begin_flush(GstEvent* event) {
  place()->cancel(true);
  queue_.set_flushing(true);
  gst_pad_push_event(source_, event);
  gst_pad_pause_task(source_);
}

void Decoder::end_flush(GstEvent* event, bool from_zero) {
  drop_pending();
  upstream_ended_ = false;
  place()->reset(from_zero);
  place()->cancel(false);
  needs_segment_ = true;
  sound_from_ = -1;
  gst_pad_push_event(source_, event);
  if (gst_pad_is_active(source_)) activate_source(true);
}

/// What the port, the parser and the queue hold.
void Decoder::drop_pending() {
  const std::lock_guard lock(io_mutex_);
  for (Source* source : {&main_, &second_pid_}) {
    if (source->port != nullptr) source->port->drain();
    source->parser.reset();
    source->at_end = false;
  }
  merge_.reset();
  has_data_ = queued_end_ = false;
  queue_.clear();
}

// --- Custom events -----------------------------------------------------------

bool Decoder::custom_event(GstEvent* event) {
  struct Row {
    const char* field;
    bool (Decoder::*handle)(const GstStructure&);
  };
  static constexpr auto kRows = std::to_array<Row>({
      {"flush-video", &Decoder::on_flush},
      {"flush-audio", &Decoder::on_flush},
      {"video-codec-sub", &Decoder::on_codec_info},
      {"audio-codec-sub", &Decoder::on_codec_info},
      {"video-codec-type", &Decoder::on_decode_info},
      {"hfr2pid-start", &Decoder::on_two_pids_start},
      {"hfr2pid-stop", &Decoder::on_two_pids_stop},
      {"audio-lock", &Decoder::on_audio_info},
      {"dmx-pts", &Decoder::on_time_stamp},
  });
  const GstStructure* fields = gst_event_get_structure(event);
  bool result = true;
  for (const Row& row : kRows)
    if (fields != nullptr && gst_structure_has_field(fields, row.field))
      result = (this->*row.handle)(*fields);
  gst_event_unref(event);
  return result;
}

/// The demultiplexer has stopped its filters and starts them again when this
/// returns. Running time goes on.
bool Decoder::on_flush(const GstStructure&) {
  begin_flush(gst_event_new_flush_start());
  end_flush(gst_event_new_flush_stop(FALSE), false);
  return true;
}

/// This is the decoder of an audio description, or of a second video stream
/// whose caps came on the main one's pad.
bool Decoder::on_codec_info(const GstStructure& fields) {
  gboolean second = FALSE;
  if (!video_ && gst_structure_get_boolean(&fields, "audio-codec-sub", &second)) {
    {
      const std::lock_guard lock(setup_mutex_);
      second_ = second != FALSE;
    }
    return attach();
  }
  return true;
}

bool Decoder::on_decode_info(const GstStructure& fields) {
  if (!video_) return false;
  guint fourcc = 0;
  const gchar* name = gst_structure_get_string(&fields, "videodec-device");
  {
    const std::lock_guard lock(setup_mutex_);
    if (gst_structure_get_uint(&fields, "video-codec-type", &fourcc))
      forced_.reset(caps_of_fourcc(fourcc));
    if (name != nullptr) event_device_ = name;
  }
  return attach();
}

bool Decoder::on_two_pids_start(const GstStructure& fields) {
  const gchar* name = gst_structure_get_string(&fields, "videodec-device-sub");
  return video_ && name != nullptr && open_port(second_pid_, name);
}

bool Decoder::on_two_pids_stop(const GstStructure&) {
  const std::lock_guard lock(io_mutex_);
  second_pid_ = {};  // what it gave already is still merged
  wake_.raise();
  return true;
}

bool Decoder::on_audio_info(const GstStructure& fields) {
  gboolean locked = FALSE;
  if (!gst_structure_get_boolean(&fields, "audio-lock", &locked)) return false;
  if (audio_lock_.exchange(locked != FALSE) != (locked != FALSE))
    g_object_notify(G_OBJECT(element_), "audio-lock");
  return true;
}

bool Decoder::on_time_stamp(const GstStructure& fields) {
  guint stamp = 0;
  if (video_ || !gst_structure_get_uint(&fields, "dmx-pts", &stamp)) return false;
  sound_from_ = stamp;
  return true;
}

/// Upstream, from where the demultiplexer tells the video decoders.
void Decoder::send_audio_lock(bool locked) {
  if (audio_lock_.exchange(locked) == locked) return;
  GstStructure* fields =
      gst_structure_new("audio-lock", "audio-lock", G_TYPE_UINT, locked ? 1U : 0U, nullptr);
  gst_pad_push_event(sink_, gst_event_new_custom(GST_EVENT_CUSTOM_UPSTREAM, fields));
  g_object_notify(G_OBJECT(element_), "audio-lock");
}

}  // namespace softdec
