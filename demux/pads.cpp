// SPDX-License-Identifier: LGPL-2.1-or-later
#include "demux/pads.h"

#include <algorithm>
#include <array>
#include <memory>
#include <string>

#include "demux/caps.h"
#include "demux/sticky_events.h"
#include "demux/stream_table.h"
#include "demux/unlink.h"
#include "instance/log.h"

namespace vantrel {
namespace {

constexpr const char* kCreate = "gst_tv_ts_demux_create_stream";

/// A content with a pad of its own.
struct PadRow {
  GstTvTsDemuxStreamContent content;
  const char* template_name;
  const char* pad_name;
  GstPadUnlinkFunction unlink;
  const char* failure;
};

constexpr auto kPadRows = std::to_array<PadRow>({
    {STREAM_CONTENT_VIDEO, "video_%04x", "video-src", gst_tv_ts_demux_video_srcpad_unlink,
     "create src-video pad fail"},
    {STREAM_CONTENT_AUDIO, "audio_%04x", "audio-src", gst_tv_ts_demux_audio_srcpad_unlink,
     "create src-audio pad fail"},
    {STREAM_CONTENT_SUBTITLE, "subtitle_%04x", "subtitle-src", nullptr,
     "create src-subtitle pad fail"},
    {STREAM_CONTENT_TELETEXT, "subtitle_%04x", "teletext-src", nullptr,
     "create src-teletext pad fail"},
    {STREAM_CONTENT_AUDIO_DESC, "audio_des_%04x", "audio-description-src",
     gst_tv_ts_demux_audiosub_srcpad_unlink, "create src-audio-description pad fail"},
});

const PadRow* pad_row_of(guint content) {
  for (const PadRow& row : kPadRows)
    if (row.content == content) return &row;
  return nullptr;
}

struct CapsUnref {
  void operator()(GstCaps* caps) const { gst_caps_unref(caps); }
};
using CapsPtr = std::unique_ptr<GstCaps, CapsUnref>;

/// Answers caps from a reference of its own: the default looks at the fixed
/// caps without one, while another thread may be replacing them.
gboolean src_query(GstPad* pad, GstObject* parent, GstQuery* query) {
  if (GST_QUERY_TYPE(query) != GST_QUERY_CAPS) return gst_pad_query_default(pad, parent, query);
  CapsPtr caps(gst_pad_get_current_caps(pad));
  if (caps == nullptr) caps.reset(gst_pad_get_pad_template_caps(pad));
  GstCaps* filter = nullptr;
  gst_query_parse_caps(query, &filter);
  if (filter != nullptr)
    caps.reset(gst_caps_intersect_full(filter, caps.get(), GST_CAPS_INTERSECT_FIRST));
  gst_query_set_caps_result(query, caps.get());
  return TRUE;
}

/// The recorder's pad forwards events as pads do by default.
gboolean recorder_event(GstPad* pad, GstObject* parent, GstEvent* event) {
  if (parent != nullptr && GST_EVENT_TYPE(event) == GST_EVENT_RECONFIGURE)
    deliver_stored_events(reinterpret_cast<GstVantrel*>(parent), pad);
  return gst_pad_event_default(pad, parent, event);
}

bool held_by_a_record(GstVantrel* self, const GstPad* pad) {
  std::lock_guard lock(self->stream_lock);
  return std::ranges::any_of(streams_locked(self),
                             [&](const StreamPtr& stream) { return stream->pad.get() == pad; });
}

/// A pad for the row: the one that an earlier run left, or a new one. A name
/// that a record holds is numbered: "subtitle-src-2", "subtitle-src-3".
PadRef find_or_make_pad(GstVantrel* self, const PadRow& row, bool* is_new) {
  std::string name = row.pad_name;
  for (guint number = 2; number <= kMaxStreams + 1; number++) {
    PadRef left = PadRef::take(gst_element_get_static_pad(as_element(self), name.c_str()));
    *is_new = !left;
    if (!left) break;
    if (!held_by_a_record(self, left.get())) return left;
    name = std::string(row.pad_name) + "-" + std::to_string(number);
  }
  GstPadTemplate* templ =
      gst_element_class_get_pad_template(GST_ELEMENT_GET_CLASS(self), row.template_name);
  if (templ == nullptr) return {};
  return PadRef::sink(gst_pad_new_from_template(templ, name.c_str()));
}

/// Sticky events first, then the functions: nobody sees a pad half made.
void dress_pad(GstVantrel* self, GstPad* pad, GstTvTsDemuxStream* stream, GstCaps* caps,
               GstPadUnlinkFunction unlink) {
  if (caps != nullptr) {
    gst_pad_use_fixed_caps(pad);
    send_caps(self, pad, caps);
  }
  gst_pad_set_element_private(pad, stream);
  gst_pad_set_event_function_full(pad, self->src_event, nullptr, nullptr);
  gst_pad_set_query_function_full(pad, src_query, nullptr, nullptr);
  if (unlink != nullptr) gst_pad_set_unlink_function_full(pad, unlink, nullptr, nullptr);
}

bool add_pad(GstVantrel* self, GstPad* pad) {
  if (gst_element_add_pad(as_element(self), pad)) return true;
  LOG_WARNING_AS(kCreate, "pad %s cannot be added", GST_PAD_NAME(pad));
  return false;
}

CapsPtr map_caps_of(GstVantrel* self, const StreamPtr& stream) {
  int index = -1;
  {
    std::lock_guard lock(self->stream_lock);
    index = stream_index_locked(self, stream.get());
  }
  if (index < 0) return nullptr;
  CapsPtr caps(gst_tv_ts_demux_map_caps(self, static_cast<guint>(index)));
  if (caps == nullptr) LOG_DEBUG_AS(kCreate, "Unknown caps for stream %d", index);
  return caps;
}

/// A left pad that never had caps may have got a segment, which caps must not
/// come behind: it starts anew.
void activate(GstPad* pad) {
  if (!gst_pad_has_current_caps(pad)) gst_pad_set_active(pad, FALSE);
  gst_pad_set_active(pad, TRUE);
}

PadRef make_own_pad(GstVantrel* self, const StreamPtr& stream, const PadRow& row) {
  bool is_new = false;
  PadRef pad = find_or_make_pad(self, row, &is_new);
  if (!pad) {
    LOG_DEBUG_AS(kCreate, "%s", row.failure);
    return {};
  }
  const CapsPtr caps = map_caps_of(self, stream);
  activate(pad.get());
  send_stream_start(self, pad.get());
  dress_pad(self, pad.get(), stream.get(), caps.get(), row.unlink);
  if (is_new && !add_pad(self, pad.get())) return {};
  return caps != nullptr ? pad : PadRef();
}

/// The second video's caps go out on the first one's pad.
PadRef borrow_video_pad(GstVantrel* self, const StreamPtr& stream) {
  PadRef pad;
  if (const StreamPtr video = first_stream(self, STREAM_CONTENT_VIDEO))
    pad = stream_pad(self, video);
  if (!pad) {
    LOG_DEBUG_AS(kCreate, "create src-video-sub pad fail");
    return {};
  }
  const CapsPtr caps = map_caps_of(self, stream);
  if (caps == nullptr) return {};
  dress_pad(self, pad.get(), stream.get(), caps.get(), nullptr);
  return pad;
}

/// Makes the pad the record's, unless the record went away meanwhile.
bool store_pad(GstVantrel* self, const StreamPtr& stream, PadRef pad) {
  std::lock_guard lock(self->stream_lock);
  if (stream_index_locked(self, stream.get()) < 0) return false;
  std::swap(stream->pad, pad);  // it had none, so nothing is released here
  return true;
}

/// Takes a pad away whose stream its own "pad-added" handler removed, unless
/// another stream has taken it since.
void drop_pad(GstVantrel* self, const StreamPtr& stream, const PadRef& pad) {
  const bool borrowed = stream->content == STREAM_CONTENT_VIDEO_SUB;
  if (!borrowed && !held_by_a_record(self, pad.get())) remove_pad(self, pad);
}

/// The stream's pad, with its events and functions; empty where there is none.
PadRef make_pad(GstVantrel* self, const StreamPtr& stream) {
  if (stream->content == STREAM_CONTENT_VIDEO_SUB) return borrow_video_pad(self, stream);
  if (const PadRow* row = pad_row_of(stream->content)) return make_own_pad(self, stream, *row);
  LOG_DEBUG_AS(kCreate, "Unknown pad content %d", stream->content);
  return {};
}

}  // namespace

gboolean gst_tv_ts_demux_create_stream(GstVantrel* self, const StreamPtr& stream) {
  LOG_DEBUG_AS(kCreate, "[PERF_CHECK][BEGIN]");
  if (stream_pad(self, stream)) {
    LOG_DEBUG_AS(kCreate, "gst_tv_ts_demux_create_stream create pad already!!!");
    return FALSE;
  }
  if (!is_record_mode(self->dmx_type)) {
    const PadRef pad = make_pad(self, stream);
    if (!pad) return FALSE;
    if (!store_pad(self, stream, pad)) {
      drop_pad(self, stream, pad);
      return FALSE;
    }
    // A peer linked in "pad-added" has missed what was sent before.
    deliver_stored_events(self, pad.get());
    send_upstreams_position(self, pad.get());
  }
  LOG_DEBUG_AS(kCreate, "[PERF_CHECK][END]");
  return TRUE;
}

PadRef create_spts_pad(GstVantrel* self) {
  GstPadTemplate* templ =
      gst_element_class_get_pad_template(GST_ELEMENT_GET_CLASS(self), "spts_src_%04x");
  if (templ == nullptr) return {};
  PadRef pad = PadRef::sink(gst_pad_new_from_template(templ, "spts_src"));
  if (!pad) return {};
  gst_pad_set_active(pad.get(), TRUE);
  gst_pad_set_event_function(pad.get(), recorder_event);
  send_stream_start(self, pad.get());
  CapsPtr caps(gst_pad_get_pad_template_caps(pad.get()));
  send_caps(self, pad.get(), caps.get());
  return add_pad(self, pad.get()) ? pad : PadRef();
}

void remove_pad(GstVantrel* self, const PadRef& pad) {
  gst_pad_set_active(pad.get(), FALSE);
  gst_element_remove_pad(as_element(self), pad.get());
}

void restore_video_pad(GstVantrel* self, const StreamPtr& video) {
  const PadRef pad = stream_pad(self, video);
  if (!pad) return;
  if (const CapsPtr caps = map_caps_of(self, video)) send_caps(self, pad.get(), caps.get());
  gst_pad_set_element_private(pad.get(), video.get());
}

}  // namespace vantrel
