// SPDX-License-Identifier: LGPL-2.1-or-later
#include "softdec/decoder.h"

#include <cerrno>
#include <iterator>
#include <utility>

#include "softdec/codec.h"
#include "softdec/stamp.h"

namespace softdec {
namespace {

/// How often a port that is at its end is looked at for new data.
constexpr int kRecheckEnd = 100;  // ms
/// The segment's start: running time 0. Sound that is older than the first
/// picture has a time before it, which clips it.
constexpr std::int64_t kOrigin = 3600LL * GST_SECOND;

}  // namespace

// --- The reader --------------------------------------------------------------

void Decoder::read_loop() {
  while (running_) {
    PortRef main;
    PortRef second;
    const Port* watched[2];
    bool at_end = false;
    {
      const std::lock_guard lock(io_mutex_);
      main = main_.port;
      second = second_pid_.port;
      watched[0] = main_.at_end ? nullptr : main.get();
      watched[1] = second_pid_.at_end ? nullptr : second.get();
      at_end = main_.at_end || second_pid_.at_end;
    }
    wake_.wait({watched[0], watched[1]}, at_end ? kRecheckEnd : -1);
    wake_.clear();
    if (running_) read_ports(main, second);
  }
}

/// One read of each. What they give is queued without the lock: the queue may be
/// full.
void Decoder::read_ports(const PortRef& main, const PortRef& second) {
  std::vector<Item> items;
  std::uint64_t generation = 0;
  {
    const std::lock_guard lock(io_mutex_);
    items = read(main_, main);
    if (second != nullptr) {
      std::vector<Item> more = read(second_pid_, second);
      if (more.empty()) more = items_of(merge_.second_is_empty());
      std::move(more.begin(), more.end(), std::back_inserter(items));
    }
    generation = queue_.generation();
  }
  for (Item& item : items)
    if (!queue_.push(std::move(item), generation)) return;
}

/// io_mutex_ is held.
std::vector<Item> Decoder::read(Source& source, const PortRef& expected) {
  if (source.port != expected) return {};
  // Asked first: what came between an empty read and the end is still to be read.
  const bool ended = upstream_ended_;
  errno = EAGAIN;
  const ssize_t count = expected ? expected->read(buffer_.data(), buffer_.size()) : -1;
  if (count > 0) {
    has_data_ = true;
    source.at_end = queued_end_ = false;
    return items_of(source, source.parser.add(buffer_.data(), static_cast<std::size_t>(count)));
  }
  if (count == 0 || (ended && errno == EAGAIN)) return take_end(source);
  if (errno == EOVERFLOW) source.parser.reset();
  return {};
}

std::vector<Item> Decoder::items_of(const Source& source, std::vector<PesUnit> units) {
  if (second_pid_.port != nullptr) units = merge_.add(&source == &main_ ? 0 : 1, std::move(units));
  return items_of(std::move(units));
}

std::vector<Item> Decoder::items_of(std::vector<PesUnit> units) {
  std::vector<Item> items;
  items.reserve(units.size());
  for (PesUnit& unit : units) {
    if (unit.pts) place()->report(*unit.pts);
    items.push_back({std::move(unit), false});
  }
  return items;
}

/// The port says that it is at its end until new data comes: that is not the end
/// of what was asked for by a seek meanwhile. Of two, both must have ended.
std::vector<Item> Decoder::take_end(Source& source) {
  source.at_end = true;
  const bool all = main_.at_end && (second_pid_.port == nullptr || second_pid_.at_end);
  if (queued_end_ || (!has_data_ && !upstream_ended_)) return {};
  std::vector<Item> items = items_of(source, source.parser.finish());
  if (!all) return items;
  queued_end_ = true;
  std::vector<Item> rest = items_of(merge_.finish());
  std::move(rest.begin(), rest.end(), std::back_inserter(items));
  items.push_back({{}, true});
  return items;
}

// --- The task ----------------------------------------------------------------

void Decoder::push_one() {
  std::optional<Item> item = queue_.pop();
  if (!item) {
    gst_pad_pause_task(source_);
  } else if (item->end) {
    push_end();
  } else {
    push_unit(std::move(item->unit));
  }
}

void Decoder::push_unit(PesUnit unit) {
  Times times;
  if (!times_of(unit, times)) return;
  prepare_pad(unit.payload);
  if (current_ == nullptr || discarding_) return;
  discont_ |= unit.discont;
  GstBuffer* buffer = gst_buffer_new_memdup(unit.payload.data(), unit.payload.size());
  GST_BUFFER_PTS(buffer) = times.pts;
  GST_BUFFER_DTS(buffer) = times.dts;
  if (std::exchange(discont_, false)) GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DISCONT);
  push_buffer(buffer);
}

/// False for what is not to be shown: a flush came, or sound is waited with.
bool Decoder::times_of(const PesUnit& unit, Times& times) {
  if (!unit.pts) return true;
  if (is_early_sound(*unit.pts)) return false;
  const auto running = place()->running_time(*unit.pts, *this);
  if (!running) return false;
  const std::int64_t pts = *running + kOrigin;
  const std::int64_t ahead = unit.dts ? to_nanoseconds(difference(*unit.pts, *unit.dts)) : 0;
  if (pts >= 0) times.pts = static_cast<GstClockTime>(pts);
  if (pts >= ahead) times.dts = static_cast<GstClockTime>(pts - ahead);
  return true;
}

/// After "dmx-pts" sound that belongs before that time is left out.
bool Decoder::is_early_sound(std::uint64_t stamp) {
  const std::int64_t from = sound_from_;
  if (from < 0) return false;
  const auto left = static_cast<std::int32_t>(static_cast<std::uint32_t>(from) -
                                              static_cast<std::uint32_t>(stamp));
  if (left > 0 && left < 10 * kTicksPerSecond) return true;
  sound_from_ = -1;
  return false;
}

/// Brings the pad's sticky events up to date before a buffer goes out.
void Decoder::prepare_pad(const std::vector<std::uint8_t>& payload) {
  if (needs_start_.exchange(false)) push_stream_start();
  if (CapsPtr caps = caps_for(payload)) {
    current_ = std::move(caps);
    gst_pad_push_event(source_, gst_event_new_caps(current_.get()));
    if (!video_) send_audio_lock(true);
  }
  if (current_ != nullptr && needs_segment_.exchange(false)) push_segment();
}

/// Caps that differ from the current ones, or nullptr.
CapsPtr Decoder::caps_for(const std::vector<std::uint8_t>& payload) {
  CapsPtr announced;
  {
    const std::lock_guard lock(setup_mutex_);
    GstCaps* caps = forced_ != nullptr ? forced_.get() : announced_.get();
    if (caps != nullptr) announced.reset(gst_caps_ref(caps));
  }
  if (announced == nullptr) return nullptr;
  CapsPtr caps(stream_caps(announced.get(), payload, current_.get()));
  const bool same = current_ != nullptr && gst_caps_is_equal(caps.get(), current_.get());
  return same ? nullptr : std::move(caps);
}

void Decoder::push_stream_start() {
  g_autoptr(GstEvent) upstream = gst_pad_get_sticky_event(sink_, GST_EVENT_STREAM_START, 0);
  guint group = GST_GROUP_ID_INVALID;
  const gchar* upstream_id = GST_OBJECT_NAME(element_);
  if (upstream != nullptr) {
    gst_event_parse_stream_start(upstream, &upstream_id);
    gst_event_parse_group_id(upstream, &group);
  }
  g_autofree gchar* id = g_strdup_printf("%s/%s", upstream_id, kind_.element);
  GstEvent* event = gst_event_new_stream_start(id);
  gst_event_set_group_id(event, group != GST_GROUP_ID_INVALID ? group : gst_util_group_id_next());
  gst_pad_push_event(source_, event);
  current_.reset();
  needs_segment_ = true;
}

void Decoder::push_segment() {
  GstSegment segment;
  gst_segment_init(&segment, GST_FORMAT_TIME);
  segment.start = segment.position = kOrigin;
  gst_pad_push_event(source_, gst_event_new_segment(&segment));
  discarding_ = false;
}

/// What comes behind the end is a new stream.
void Decoder::push_end() {
  if (needs_start_.exchange(false)) push_stream_start();
  gst_pad_push_event(source_, gst_event_new_eos());
  if (!video_) send_audio_lock(false);
  needs_start_ = true;
}

/// Whatever becomes of it, the port is read on: another decoder of the demux may
/// wait behind it.
void Decoder::push_buffer(GstBuffer* buffer) {
  const GstFlowReturn flow = gst_pad_push(source_, buffer);
  if (flow == GST_FLOW_EOS) discarding_ = true;
  if (flow >= GST_FLOW_EOS || flow == GST_FLOW_NOT_LINKED) return;
  if (flow == GST_FLOW_FLUSHING) return;
  GST_ELEMENT_FLOW_ERROR(element_, flow);
  discarding_ = true;
}

// --- Clocks ------------------------------------------------------------------

std::optional<std::int64_t> Decoder::running_time() const {
  if (!playing_) return std::nullopt;
  g_autoptr(GstClock) clock = gst_element_get_clock(element_);
  if (clock == nullptr) return std::nullopt;
  return GST_CLOCK_DIFF(gst_element_get_base_time(element_), gst_clock_get_time(clock));
}

std::uint64_t Decoder::base_time() const { return gst_element_get_base_time(element_); }

std::optional<std::uint64_t> Decoder::system_time() const { return system_time_of(demux_id_); }

}  // namespace softdec
