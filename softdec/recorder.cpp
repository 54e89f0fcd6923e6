// SPDX-License-Identifier: LGPL-2.1-or-later
#include "softdec/recorder.h"

#include <qel/device.h>
#include <qel/dmx.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace softdec {
namespace {

constexpr std::size_t kPacket = 188;
constexpr std::size_t kRecordReadSize = 348 * kPacket;
/// A disk may stand still for a second or two.
constexpr unsigned kNodeBuffer = 16U << 20;
constexpr int kRecordRecheckEnd = 100;  // ms
constexpr const char* kRecordTypes = "video/mpegts";
constexpr const char* kStream = "video/mpegts, systemstream=(boolean)true, packetsize=(int)188";

std::unique_ptr<Delegate> make_recorder(GstElement* element, GstPad* sink, GstPad* source,
                                        const Kind&) {
  return std::make_unique<Recorder>(element, sink, source);
}

}  // namespace

const Kind kRecorder = {
    "qelrecord",
    "GstQelRecord",
    "Receiver record node",
    "Source/File/Hardware",
    "Transport stream from a record node of the receiver",
    kRecordTypes,
    kStream,
    make_recorder,
};

Recorder::Recorder(GstElement* element, GstPad* sink, GstPad* source)
    : element_(element), sink_(sink), source_(source), buffer_(kRecordReadSize) {}

void Recorder::set_device(const char* name) {
  const std::lock_guard lock(mutex_);
  wanted_device_ = name != nullptr ? name : "";
}

std::string Recorder::device() const {
  const std::lock_guard lock(mutex_);
  return port_ != nullptr ? port_->name() : "";
}

// --- The node ----------------------------------------------------------------

void Recorder::start() {
  {
    const std::lock_guard lock(mutex_);
    opens_ = true;
  }
  upstream_ended_ = false;
  needs_start_ = discont_ = true;
  attach();
}

void Recorder::stop() {
  const std::lock_guard lock(mutex_);
  opens_ = false;
  port_.reset();
  kept_ = 0;
  has_data_ = at_end_ = told_end_ = false;
}

/// Before the demultiplexer starts, so that nothing is missed. False, and an error
/// posted, where the node cannot be opened.
bool Recorder::attach() {
  const DemuxLink demux = DemuxLink::across(sink_);
  std::string name;
  {
    const std::lock_guard lock(mutex_);
    name = wanted_device_;
  }
  if (demux) live_ = demux.live();
  if (name.empty() && demux) name = "qel_dvr" + std::to_string(demux.number("demux-id"));
  return name.empty() || open_port(name);
}

bool Recorder::open_port(const std::string& name) {
  {
    const std::lock_guard lock(mutex_);
    if (!opens_ || (port_ != nullptr && port_->name() == name)) return true;
    if (PortRef port = Port::open(name)) {
      qel_device_ioctl(port->fd(), KWRX_DMX_SET_BUFFER_SIZE, kNodeBuffer);
      port_ = std::move(port);
      kept_ = 0;
      has_data_ = at_end_ = false;
      wake_.raise();
      return true;
    }
  }
  GST_ELEMENT_ERROR(element_, RESOURCE, OPEN_READ, ("Cannot open \"%s\".", name.c_str()),
                    GST_ERROR_SYSTEM);
  return false;
}

/// Not in the thread that links: it may hold what the demultiplexer's properties
/// need.
void Recorder::linked() {
  const auto call = [](GstElement*, gpointer self) { static_cast<Recorder*>(self)->attach(); };
  gst_element_call_async(element_, call, this, nullptr);
}

// --- The task ----------------------------------------------------------------

bool Recorder::activate_source(bool active) {
  stopping_ = !active;
  wake_.raise();
  if (!active) return gst_pad_stop_task(source_) != FALSE;
  const auto task = [](gpointer self) { static_cast<Recorder*>(self)->run_once(); };
  return gst_pad_start_task(source_, task, this, nullptr) != FALSE;
}

void Recorder::run_once() {
  PortRef port;
  bool at_end = false;
  {
    const std::lock_guard lock(mutex_);
    port = port_;
    at_end = at_end_;
  }
  wake_.wait({at_end ? nullptr : port.get()}, at_end ? kRecordRecheckEnd : -1);
  wake_.clear();
  if (stopping_) {
    gst_pad_pause_task(source_);
    return;
  }
  bool ends = false;
  const std::size_t size = read_port(port, &ends);
  if (size > 0) push_packets(size);
  if (ends) push_end();
}

/// Bytes of whole packets that are in the buffer now.
std::size_t Recorder::read_port(const PortRef& port, bool* ends) {
  const std::lock_guard lock(mutex_);
  if (port != port_) return 0;
  // Asked first: what came between an empty read and the end is still to be read.
  const bool ended = upstream_ended_;
  errno = EAGAIN;
  const ssize_t count = port ? port->read(buffer_.data() + kept_, kRecordReadSize - kept_) : -1;
  if (count > 0) {
    has_data_ = true;
    at_end_ = told_end_ = false;
    const std::size_t size = kept_ + static_cast<std::size_t>(count);
    kept_ = size % kPacket;
    return size - kept_;
  }
  if (count == 0 || (ended && errno == EAGAIN)) {
    at_end_ = true;
    *ends = !told_end_ && (has_data_ || upstream_ended_);
    told_end_ |= *ends;
  } else if (errno == EOVERFLOW) {
    discont_ = true;
    GST_ELEMENT_WARNING(element_, RESOURCE, READ, ("Packets were lost."),
                        ("%s overflowed", port->name().c_str()));
  }
  return 0;
}

void Recorder::push_packets(std::size_t size) {
  GstBuffer* buffer = nullptr;
  {
    const std::lock_guard lock(mutex_);
    buffer = gst_buffer_new_memdup(buffer_.data(), size);
    std::copy_n(buffer_.begin() + static_cast<std::ptrdiff_t>(size), kept_, buffer_.begin());
  }
  prepare_pad();
  if (live_) GST_BUFFER_PTS(buffer) = gst_element_get_current_running_time(element_);
  if (discont_.exchange(false)) GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DISCONT);
  const GstFlowReturn flow = gst_pad_push(source_, buffer);
  if (flow >= GST_FLOW_FLUSHING) return;
  if (flow != GST_FLOW_EOS) GST_ELEMENT_FLOW_ERROR(element_, flow);
  // A node that nobody reads any more must not hold up the demux.
  stop();
  gst_pad_pause_task(source_);
}

void Recorder::push_end() {
  prepare_pad();
  gst_pad_push_event(source_, gst_event_new_eos());
  needs_start_ = true;
}

void Recorder::prepare_pad() {
  if (needs_start_.exchange(false)) {
    g_autoptr(GstEvent) upstream = gst_pad_get_sticky_event(sink_, GST_EVENT_STREAM_START, 0);
    g_autofree gchar* id = g_strdup_printf("%s/record", GST_OBJECT_NAME(element_));
    guint group = GST_GROUP_ID_INVALID;
    if (upstream != nullptr) gst_event_parse_group_id(upstream, &group);
    GstEvent* event = gst_event_new_stream_start(id);
    gst_event_set_group_id(event, group != GST_GROUP_ID_INVALID ? group : gst_util_group_id_next());
    gst_pad_push_event(source_, event);
    g_autoptr(GstCaps) caps = gst_caps_from_string(kStream);
    gst_pad_push_event(source_, gst_event_new_caps(caps));
    needs_segment_ = true;
  }
  if (needs_segment_.exchange(false)) {
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_TIME);
    gst_pad_push_event(source_, gst_event_new_segment(&segment));
  }
}

// --- Events ------------------------------------------------------------------

bool Recorder::source_event(GstEvent* event) { return gst_pad_push_event(sink_, event) != FALSE; }

bool Recorder::source_query(GstQuery* query) {
  if (GST_QUERY_TYPE(query) != GST_QUERY_LATENCY)
    return gst_pad_query_default(source_, GST_OBJECT(element_), query) != FALSE;
  gst_query_set_latency(query, live_, 0, GST_CLOCK_TIME_NONE);
  return true;
}

bool Recorder::sink_event(GstEvent* event) {
  switch (GST_EVENT_TYPE(event)) {
    case GST_EVENT_FLUSH_START:
      begin_flush(event);
      return true;
    case GST_EVENT_FLUSH_STOP:
      end_flush(event);
      return true;
    case GST_EVENT_STREAM_START:
      upstream_ended_ = false;
      attach();
      break;
    case GST_EVENT_CAPS:
      attach();
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

void Recorder::begin_flush(GstEvent* event) {
  stopping_ = true;
  wake_.raise();
  gst_pad_push_event(source_, event);
  gst_pad_pause_task(source_);
}

void Recorder::end_flush(GstEvent* event) {
  {
    const std::lock_guard lock(mutex_);
    if (port_ != nullptr) port_->drain();
    kept_ = 0;
    has_data_ = at_end_ = told_end_ = false;
  }
  upstream_ended_ = false;
  needs_segment_ = discont_ = true;
  gst_pad_push_event(source_, event);
  if (gst_pad_is_active(source_)) activate_source(true);
}

}  // namespace softdec
