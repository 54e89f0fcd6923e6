// SPDX-License-Identifier: LGPL-2.1-or-later
#include "softdec/subtitles.h"

#include <algorithm>
#include <utility>

#include "softdec/latency.h"

namespace softdec {
namespace {

constexpr const char* kSubpictures = "subpicture/x-dvb";
/// data_identifier of DVB subtitles (ETSI EN 300 743, 7.1). Teletext, which comes
/// by the same signal, has others.
constexpr std::uint8_t kDataIdentifier = 0x20;

std::unique_ptr<Delegate> make_subtitles(GstElement* element, GstPad* sink, GstPad* source,
                                         const Kind&) {
  return std::make_unique<Subtitles>(element, sink, source);
}

}  // namespace

const Kind kSubtitles = {
    "qelsubtitle",
    "GstQelSubtitle",
    "Receiver subtitles",
    "Codec/Decoder/Subtitle",
    "DVB subtitles of the demultiplexer, on the time line of its decoders",
    kSubpictures,
    kSubpictures,
    make_subtitles,
};

Subtitles::Subtitles(GstElement* element, GstPad* sink, GstPad* source)
    : element_(element), sink_(sink), source_(source), queue_(std::make_shared<UnitQueue>()) {}

std::shared_ptr<Timeline> Subtitles::timeline() const {
  const std::lock_guard lock(mutex_);
  return timeline_;
}

// --- The demultiplexer -------------------------------------------------------

/// The demultiplexer's PES reader: one whole packet.
void Subtitles::on_pes(GstElement*, guint, gpointer bytes, guint size, gpointer queue) {
  PesParser parser;
  std::vector<PesUnit> units = parser.add(static_cast<const std::uint8_t*>(bytes), size);
  if (units.empty()) units = parser.finish();
  for (PesUnit& unit : units)
    if (unit.pts && !unit.payload.empty() && unit.payload[0] == kDataIdentifier)
      (*static_cast<QueueRef*>(queue))->offer({std::move(unit), false});
}

void Subtitles::attach() {
  DemuxLink link = DemuxLink::across(sink_);
  if (!link) return;
  const std::lock_guard lock(mutex_);
  if (demux_.get() == link.element()) return;
  live_ = link.live();
  disconnect();
  timeline_ = Timeline::of(link.element());
  demux_.reset(GST_ELEMENT(gst_object_ref(link.element())));
  const auto forget = [](gpointer queue, GClosure*) { delete static_cast<QueueRef*>(queue); };
  handler_ = g_signal_connect_data(demux_.get(), "pes-upload", G_CALLBACK(on_pes),
                                   new QueueRef(queue_), forget, static_cast<GConnectFlags>(0));
}

/// mutex_ is held, or nobody else is there.
void Subtitles::disconnect() {
  if (handler_ != 0) g_signal_handler_disconnect(demux_.get(), std::exchange(handler_, 0));
  demux_.reset();
  timeline_.reset();
}

bool Subtitles::play() {
  attach();
  return true;
}

void Subtitles::stop() {
  const std::lock_guard lock(mutex_);
  disconnect();
  needs_start_ = true;
}

// --- Pads --------------------------------------------------------------------

bool Subtitles::activate_source(bool active) {
  cancelled_ = !active;
  queue_->set_flushing(!active);
  if (const auto line = timeline()) line->wake();
  if (!active) return gst_pad_stop_task(source_) != FALSE;
  const auto task = [](gpointer self) { static_cast<Subtitles*>(self)->push_one(); };
  return gst_pad_start_task(source_, task, this, nullptr) != FALSE;
}

/// What comes from downstream is about pictures, which have their own way up.
bool Subtitles::source_event(GstEvent* event) {
  gst_event_unref(event);
  return true;
}

bool Subtitles::source_query(GstQuery* query) {
  if (GST_QUERY_TYPE(query) != GST_QUERY_LATENCY)
    return gst_pad_query_default(source_, GST_OBJECT(element_), query) != FALSE;
  answer_latency(query, live_);
  return true;
}

/// Segment and caps downstream are the task's own.
bool Subtitles::sink_event(GstEvent* event) {
  switch (GST_EVENT_TYPE(event)) {
    case GST_EVENT_FLUSH_START:
      cancelled_ = true;
      queue_->set_flushing(true);
      if (const auto line = timeline()) line->wake();
      gst_pad_push_event(source_, event);
      gst_pad_pause_task(source_);
      return true;
    case GST_EVENT_FLUSH_STOP:
      needs_start_ = true;
      gst_pad_push_event(source_, event);
      if (gst_pad_is_active(source_)) activate_source(true);
      return true;
    case GST_EVENT_STREAM_START:
    case GST_EVENT_CAPS:
      attach();
      break;
    case GST_EVENT_EOS:
      queue_->offer({{}, true});
      break;
    default:
      break;
  }
  gst_event_unref(event);
  return true;
}

// --- The task ----------------------------------------------------------------

void Subtitles::push_one() {
  const std::optional<Item> item = queue_->pop();
  if (!item) {
    gst_pad_pause_task(source_);
  } else if (item->end) {
    prepare_pad();
    gst_pad_push_event(source_, gst_event_new_eos());
    needs_start_ = true;
  } else {
    push_unit(item->unit);
  }
}

void Subtitles::push_unit(const PesUnit& unit) {
  const auto line = timeline();
  if (line == nullptr) return;
  const auto running = line->follow(*unit.pts, cancelled_);
  if (!running) return;
  prepare_pad();
  GstBuffer* buffer = gst_buffer_new_memdup(unit.payload.data(), unit.payload.size());
  GST_BUFFER_PTS(buffer) = static_cast<GstClockTime>(std::max<std::int64_t>(*running, 0));
  gst_pad_push(source_, buffer);
}

/// Time stamps are running times: overlays take the one for the other.
void Subtitles::prepare_pad() {
  if (!needs_start_.exchange(false)) return;
  g_autofree gchar* id = gst_pad_create_stream_id(source_, element_, "subtitles");
  gst_pad_push_event(source_, gst_event_new_stream_start(id));
  g_autoptr(GstCaps) caps = gst_caps_from_string(kSubpictures);
  gst_pad_push_event(source_, gst_event_new_caps(caps));
  GstSegment segment;
  gst_segment_init(&segment, GST_FORMAT_TIME);
  gst_pad_push_event(source_, gst_event_new_segment(&segment));
}

}  // namespace softdec
