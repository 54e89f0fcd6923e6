// SPDX-License-Identifier: LGPL-2.1-or-later
#include <chrono>

#include "softdec/codec.h"
#include "softdec/decoder.h"

namespace softdec {
namespace {

constexpr std::size_t kReadSize = 64 * 1024;
constexpr unsigned kAudioPorts = 4;
constexpr const char* kDescriptionPad = "audio-description-src";
constexpr const char* kDescriptionPort = "adec1";
/// Longest time that a state change waits for the demultiplexer to take the
/// decoder's name. Only an application that asks for this element's state from a
/// handler of the demultiplexer's, in another thread, makes it that long.
constexpr std::chrono::seconds kNamingLimit{1};

std::unique_ptr<Delegate> make_decoder(GstElement* element, GstPad* sink, GstPad* source,
                                       const Kind& kind) {
  return std::make_unique<Decoder>(element, sink, source, kind);
}

}  // namespace

const Kind kVideoDecoder = {
    "qelvideodec",
    "GstQelVideoDec",
    "Receiver video decoder port",
    "Codec/Decoder/Video/Hardware",
    "Elementary stream from a video decoder port of the receiver",
    kVideoTypes,
    kVideoStreams,
    make_decoder,
};
const Kind kAudioDecoder = {
    "qelaudiodec",
    "GstQelAudioDec",
    "Receiver audio decoder port",
    "Codec/Decoder/Audio/Hardware",
    "Elementary stream from an audio decoder port of the receiver",
    kAudioTypes,
    kAudioStreams,
    make_decoder,
};

Decoder::Decoder(GstElement* element, GstPad* sink, GstPad* source, const Kind& kind)
    : element_(element),
      sink_(sink),
      source_(source),
      kind_(kind),
      video_(&kind == &kVideoDecoder),
      place_(std::make_shared<Place>(Timeline::of(this), true)),
      demux_(this),
      buffer_(kReadSize) {}

void Decoder::set_device(const char* name) {
  const std::lock_guard lock(setup_mutex_);
  wanted_device_ = name != nullptr ? name : "";
}

std::string Decoder::device() const {
  const std::lock_guard lock(io_mutex_);
  return main_.port != nullptr ? main_.port->name() : "";
}

std::shared_ptr<Place> Decoder::place() const {
  const std::lock_guard lock(setup_mutex_);
  return place_;
}

// --- State -------------------------------------------------------------------

void Decoder::start() {
  running_ = true;
  upstream_ended_ = false;
  needs_start_ = true;
  attach();
  reader_ = std::thread([this] { read_loop(); });
}

bool Decoder::play() {
  // A live stream went on meanwhile: what waits is late.
  if (live_) drop_pending();
  playing_ = true;
  announced_name_ = false;
  const bool attached = attach();
  place()->wake();
  if (attached) announce_and_wait();
  return attached;
}

void Decoder::pause() { playing_ = false; }

void Decoder::stop() {
  running_ = false;
  queue_.set_flushing(true);
  wake_.raise();
  if (reader_.joinable()) reader_.join();
  close_ports();
  const std::lock_guard lock(setup_mutex_);
  event_device_.clear();
  forced_.reset();
  announced_.reset();
  second_ = false;
  join_timeline(this);
}

// --- The demultiplexer and the port ------------------------------------------

/// Opens the port as soon as its name is known. False, and an error posted, where
/// that cannot be done.
bool Decoder::attach() {
  std::string name;
  {
    const std::lock_guard lock(setup_mutex_);
    const DemuxLink demux = DemuxLink::across(sink_);
    if (demux) {
      live_ = demux.live();
      demux_id_ = demux.number("demux-id");
      join_timeline(demux.element());
    }
    name = device_for(demux);
    if (name.empty() && !demux) return true;  // not linked yet
  }
  if (name.empty()) {
    GST_ELEMENT_ERROR(element_, RESOURCE, NOT_FOUND, ("No decoder device is named."),
                      ("neither \"device\" nor the demultiplexer's \"videodec-device\" is set"));
    return false;
  }
  return open_port(main_, name);
}

/// setup_mutex_ is held.
void Decoder::join_timeline(const void* demux) {
  if (demux_ == demux) return;
  place_->cancel(true);
  place_ = std::make_shared<Place>(Timeline::of(demux), !active_);
  demux_ = demux;
}

/// setup_mutex_ is held.
std::string Decoder::device_for(const DemuxLink& demux) const {
  if (!event_device_.empty()) return event_device_;
  if (!wanted_device_.empty()) return wanted_device_;
  if (!demux) return {};
  if (video_) return demux.text("videodec-device");
  if (second_ || demux.pad_name() == kDescriptionPad) return kDescriptionPort;
  const guint index = demux.number("decoder-to-link");
  return "adec" + std::to_string(index < kAudioPorts ? index : 0);
}

bool Decoder::open_port(Source& source, const std::string& name) {
  {
    const std::lock_guard lock(io_mutex_);
    if (!running_ || (source.port != nullptr && source.port->name() == name)) return true;
    if (PortRef port = Port::open(name)) {
      source = {std::move(port), {}, false};
      has_data_ = false;
      wake_.raise();
      return true;
    }
  }
  GST_ELEMENT_ERROR(element_, RESOURCE, OPEN_READ, ("Cannot open \"%s\".", name.c_str()),
                    GST_ERROR_SYSTEM);
  return false;
}

void Decoder::close_ports() {
  const std::lock_guard lock(io_mutex_);
  main_ = second_pid_ = {};
  merge_.reset();
  has_data_ = queued_end_ = false;
}

// --- The decoder's name ------------------------------------------------------

/// Tells the demultiplexer which decoder its video goes to. In playback of a
/// recording it programs the filter only then; after the pads were unlinked it
/// starts it again. Once for each link and each beginning of play: a filter that
/// starts anew loses the rest of a picture.
void Decoder::announce() {
  const DemuxLink demux = DemuxLink::across(sink_);
  if (!demux || !playing_) return;
  const std::string name = device();
  if (video_ && !name.empty() && !announced_name_.exchange(true))
    g_object_set(demux.element(), "videodec-device", name.c_str(), nullptr);
}

/// The property is written on another thread, waited for with a limit: the
/// demultiplexer may be held by a handler of the application's that waits for
/// this element.
void Decoder::announce_and_wait() {
  std::unique_lock lock(naming_mutex_);
  const unsigned mine = ++namings_asked_;
  const auto call = [](GstElement*, gpointer data) {
    auto* self = static_cast<Decoder*>(data);
    { const std::lock_guard asked(self->naming_mutex_); }
    self->announce();
    const std::lock_guard done(self->naming_mutex_);
    ++self->namings_done_;
    self->named_.notify_all();
  };
  gst_element_call_async(element_, call, this, nullptr);
  named_.wait_for(lock, kNamingLimit, [&] { return namings_done_ >= mine; });
}

void Decoder::linked() {
  announced_name_ = false;
  if (!running_) return;
  const auto call = [](GstElement*, gpointer data) {
    auto* self = static_cast<Decoder*>(data);
    { const std::lock_guard asked(self->naming_mutex_); }
    if (self->attach()) self->announce();
  };
  gst_element_call_async(element_, call, this, nullptr);
}

}  // namespace softdec
