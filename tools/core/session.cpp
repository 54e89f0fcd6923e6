// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/core/session.h"

#include <gst/app/gstappsrc.h>
#include <qel/receiver.h>

#include <algorithm>

#include "tools/core/deadline.h"
#include "tools/core/failure.h"

namespace tools {
namespace {

constexpr guint kSectionBuffer = 1024 * 1024;
/// Bytes that wait in front of the element.
constexpr guint64 kQueue = 2 * 1024 * 1024;
constexpr GstClockTime kLongestNap = 20 * GST_MSECOND;
constexpr double kLastWords = 5;  // seconds
constexpr unsigned kDemux = 0;

struct DemuxType {
  Session::Mode mode;
  bool live;
  guint type;
};

constexpr auto kDemuxTypes = std::to_array<DemuxType>({
    {Session::Mode::kPlay, true, 0},
    {Session::Mode::kPlay, false, 1},
    {Session::Mode::kRecord, true, 2},
    {Session::Mode::kRecord, false, 3},
});

guint demux_type(Session::Mode mode, bool live) {
  const auto row = std::find_if(kDemuxTypes.begin(), kDemuxTypes.end(), [&](const DemuxType& type) {
    return type.mode == mode && type.live == live;
  });
  return row->type;
}

}  // namespace

Session::Session(Input& input, Mode mode, bool as_live) : input_(input) {
  limit(std::nullopt);
  demux_ = gst_element_factory_make("vantrel", nullptr);
  if (demux_ == nullptr)
    throw Failure(Status::kFailed,
                  "the element \"vantrel\" is not to be found; is GST_PLUGIN_PATH set?");
  pipeline_.reset(gst_pipeline_new(nullptr));
  source_ = gst_element_factory_make("appsrc", nullptr);
  gst_bin_add_many(GST_BIN(pipeline_.get()), source_, demux_, nullptr);
  gst_element_link(source_, demux_);
  g_object_set(source_, "max-bytes", kQueue, "format", GST_FORMAT_BYTES, nullptr);
  g_object_set(demux_, "demux-type", demux_type(mode, input.is_live() || as_live), "dmx-buf-size",
               kSectionBuffer, nullptr);
  // What is live has its pace already.
  qel_receiver_set_pacing(kDemux, as_live && !input.is_live() ? 1 : 0);
  qel_receiver_reset_counters(kDemux);
  g_signal_connect(demux_, "section-upload", G_CALLBACK(section_uploaded), this);
  g_signal_connect(demux_, "pes-upload", G_CALLBACK(pes_uploaded), this);
}

void Session::limit(std::optional<double> seconds) {
  limit_ = std::make_unique<StreamLimit>(seconds, input_.packet_size(), input_.is_live());
}

void Session::add_filter(const SectionRequest& request) {
  SectionRequest* kept = nullptr;
  {
    std::lock_guard lock(mutex_);
    kept = &requests_.emplace_back(request);
  }
  gpointer filter = nullptr;
  g_signal_emit_by_name(demux_, "add-filter", kept->pid, kept->table_id, kept->extension,
                        kept->mask.data(), kept->match.data(), kept->length, kept->changed_only,
                        kept->check_crc, kept->mode.data(), &filter);
  if (filter == nullptr)
    throw Failure(Status::kFailed,
                  "no section filter to be had for PID " + std::to_string(kept->pid));
}

void Session::prepare() {
  if (gst_element_set_state(pipeline_.get(), GST_STATE_PAUSED) == GST_STATE_CHANGE_FAILURE) {
    take_message(0);
    throw Failure(Status::kFailed, "the element cannot be readied");
  }
}

void Session::run(Progress* progress, const Condition& enough) {
  prepare();
  if (gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE)
    throw Failure(Status::kFailed, "the pipeline does not start");
  const Condition over = [&] { return limit_->is_over() || (enough && enough()); };
  while (!ended_ && !over()) {
    BufferPtr buffer = input_.next(over);
    if (buffer == nullptr || !feed(std::move(buffer), enough)) break;
    if (progress != nullptr) progress->show(fed_);
  }
  gst_app_src_end_of_stream(GST_APP_SRC(source_));
  drain(enough);
  rethrow();
}

/// Lets all that was fed be delivered.
void Session::drain(const Condition& enough) {
  std::optional<Deadline> patience;
  while (!ended_ && !(drops_rest_ && (interrupted() || (enough && enough())))) {
    // After a signal nobody waits long for what readers have not taken yet.
    if (interrupted() && !patience) patience.emplace(kLastWords);
    if (patience && patience->is_over()) return;
    take_message(kLongestNap);
  }
}

/// The element waits for readers; so does this, and sees errors meanwhile.
bool Session::wait_for_room(const Condition& enough) {
  for (GstClockTime nap = GST_MSECOND / 4;
       gst_app_src_get_current_level_bytes(GST_APP_SRC(source_)) > kQueue; nap *= 2) {
    take_message(std::min(nap, kLongestNap));
    if (ended_ || interrupted() || (enough && enough())) return false;
  }
  return true;
}

/// False when nothing more is to be fed.
bool Session::feed(BufferPtr buffer, const Condition& enough) {
  std::size_t size = 0;
  {
    const MappedBuffer map(buffer.get());
    size = limit_->take({map.data(), map.size()});
    if (observer_) observer_({map.data(), size});
  }
  if (size == 0 || !wait_for_room(enough)) return false;
  // Time stamps of the source would be read as the stream's.
  buffer.reset(gst_buffer_make_writable(buffer.release()));
  gst_buffer_set_size(buffer.get(), static_cast<gssize>(size));
  GST_BUFFER_PTS(buffer.get()) = GST_BUFFER_DTS(buffer.get()) = GST_CLOCK_TIME_NONE;
  GST_BUFFER_OFFSET(buffer.get()) = fed_;
  fed_ += size;
  return gst_app_src_push_buffer(GST_APP_SRC(source_), buffer.release()) == GST_FLOW_OK;
}

void Session::take_message(GstClockTime wait) {
  g_autoptr(GstBus) bus = gst_element_get_bus(pipeline_.get());
  const auto wanted =
      static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR | GST_MESSAGE_LATENCY);
  const MessagePtr message(gst_bus_timed_pop_filtered(bus, wait, wanted));
  if (message == nullptr) return;
  if (GST_MESSAGE_TYPE(message.get()) == GST_MESSAGE_LATENCY) {
    gst_bin_recalculate_latency(GST_BIN(pipeline_.get()));
    return;
  }
  if (GST_MESSAGE_TYPE(message.get()) == GST_MESSAGE_ERROR) return take_error(message.get());
  ended_ = true;
}

void Session::take_error(GstMessage* message) {
  rethrow();
  const ErrorVerdict verdict = error_handler_ ? error_handler_(message) : ErrorVerdict::kFail;
  if (verdict == ErrorVerdict::kGoOn) return;
  ended_ = true;
  if (verdict == ErrorVerdict::kFail) throw Failure(Status::kFailed, error_text(message));
}

void Session::rethrow() {
  std::lock_guard lock(mutex_);
  if (thrown_) std::rethrow_exception(thrown_);
}

/// Nothing may be thrown through the element's thread.
template <typename Handler>
void Session::deliver(const Handler& handler, unsigned pid, gpointer bytes, guint size) {
  if (!handler) return;
  try {
    handler(pid, {static_cast<const char*>(bytes), size});
  } catch (...) {
    std::lock_guard lock(mutex_);
    if (!thrown_) thrown_ = std::current_exception();
  }
}

void Session::section_uploaded(GstElement*, guint pid, guint, gpointer bytes, guint size, gpointer,
                               gpointer self) {
  auto* session = static_cast<Session*>(self);
  session->deliver(session->section_handler_, pid, bytes, size);
}

void Session::pes_uploaded(GstElement*, guint pid, gpointer bytes, guint size, gpointer self) {
  auto* session = static_cast<Session*>(self);
  session->deliver(session->pes_handler_, pid, bytes, size);
}

}  // namespace tools
