// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/core/input.h"

#include <gst/app/gstappsink.h>
#include <gst/base/gstbasesrc.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>

#include "tools/core/failure.h"

namespace tools {
namespace {

constexpr std::uint8_t kSync = 0x47;
/// Where packets have to begin.
constexpr std::size_t kLookAt = 1024 * 1024;
/// Sync bytes in a row that make a stream.
constexpr std::size_t kInARow = 5;
constexpr std::size_t kKeep = 32 * 1024 * 1024;
constexpr guint kBlock = 256 * 1024;
constexpr GstClockTime kSlice = 100 * GST_MSECOND;

volatile std::sig_atomic_t signalled = 0;

void on_signal(int) { signalled = 1; }

bool repeats(const std::string& bytes, std::size_t at, std::size_t distance) {
  if (at + (kInARow - 1) * distance >= bytes.size()) return false;
  for (std::size_t i = 0; i < kInARow; i++)
    if (static_cast<std::uint8_t>(bytes[at + i * distance]) != kSync) return false;
  return true;
}

GstElement* make_source(const std::string& location, bool file) {
  g_autoptr(GError) error = nullptr;
  GstElement* source = nullptr;
  if (location == "-" || file) {
    source = gst_element_factory_make(file ? "filesrc" : "fdsrc", nullptr);
    if (source != nullptr && file) g_object_set(source, "location", location.c_str(), nullptr);
  } else {
    source = gst_element_make_from_uri(GST_URI_SRC, location.c_str(), nullptr, &error);
  }
  if (source == nullptr)
    throw Failure(Status::kNoInput, location + ": " + (error != nullptr ? error->message
                                                                        : "no element reads it") +
                                        " (inputs are files, - and URIs such as udp://)");
  if (GST_IS_BASE_SRC(source)) gst_base_src_set_blocksize(GST_BASE_SRC(source), kBlock);
  return source;
}

/// What the file system says before GStreamer is asked.
void check_file(const std::string& path) {
  if (std::filesystem::is_directory(path))
    throw Failure(Status::kNoInput, path + ": is a folder; name a file in it");
  if (FILE* file = std::fopen(path.c_str(), "rbe"))
    std::fclose(file);
  else
    throw Failure(Status::kNoInput, path + ": " + std::strerror(errno));
}

}  // namespace

void catch_signals() {
  struct sigaction action = {};
  action.sa_handler = on_signal;
  // A second one ends the process, should the first be of no use.
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  for (const int number : {SIGINT, SIGTERM}) sigaction(number, &action, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
}

bool interrupted() { return signalled != 0; }

Input::Input(std::string location, double patience)
    : location_(std::move(location)), patience_(patience) {
  file_ = location_ != "-" && !gst_uri_is_valid(location_.c_str());
  if (file_) {
    check_file(location_);
    std::error_code code;
    size_ = std::filesystem::file_size(location_, code);
    if (code) size_ = 0;
    file_ = std::filesystem::is_regular_file(location_, code);
  }
  open();
  examine();
}

void Input::open() {
  pipeline_.reset(gst_pipeline_new(nullptr));
  GstElement* source =
      make_source(location_, location_ != "-" && !gst_uri_is_valid(location_.c_str()));
  sink_.reset(GST_ELEMENT(gst_object_ref_sink(gst_element_factory_make("appsink", nullptr))));
  g_object_set(sink_.get(), "sync", FALSE, nullptr);
  gst_bin_add_many(GST_BIN(pipeline_.get()), source,
                   GST_ELEMENT(gst_object_ref(sink_.get())), nullptr);
  if (!gst_element_link(source, sink_.get()))
    throw Failure(Status::kNoInput, location_ + ": this kind of URI gives no plain stream");
  const auto change = gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING);
  live_ = GST_IS_BASE_SRC(source) && gst_base_src_is_live(GST_BASE_SRC(source));
  // A live source may be read late, but nothing else may be read far ahead.
  if (!live_) g_object_set(sink_.get(), "max-buffers", 4U, nullptr);
  if (change == GST_STATE_CHANGE_FAILURE) check_error();
}

void Input::check_error() {
  g_autoptr(GstBus) bus = gst_element_get_bus(pipeline_.get());
  const MessagePtr message(gst_bus_pop_filtered(bus, GST_MESSAGE_ERROR));
  if (message != nullptr)
    throw Failure(Status::kNoInput, location_ + ": " + error_text(message.get()));
}

BufferPtr Input::pull(const std::function<bool()>& stop) {
  const auto slices = static_cast<int>(patience_ * GST_SECOND / kSlice) + 1;
  for (int i = 0; i < slices && !interrupted() && !(stop && stop()); i++) {
    GstSample* sample = gst_app_sink_try_pull_sample(GST_APP_SINK(sink_.get()), kSlice);
    if (sample == nullptr) {
      check_error();
      if (gst_app_sink_is_eos(GST_APP_SINK(sink_.get()))) return nullptr;
      continue;
    }
    BufferPtr buffer(gst_buffer_ref(gst_sample_get_buffer(sample)));
    gst_sample_unref(sample);
    return buffer;
  }
  return nullptr;
}

BufferPtr Input::next(const std::function<bool()>& stop) {
  if (interrupted()) return nullptr;
  if (replayed_ < kept_.size()) {
    BufferPtr buffer(gst_buffer_ref(kept_[replayed_].get()));
    if (keeping_)
      replayed_++;
    else
      kept_.pop_front();
    return buffer;
  }
  BufferPtr buffer = pull(stop);
  if (buffer != nullptr && keeping_ && !file_) {
    kept_bytes_ += gst_buffer_get_size(buffer.get());
    kept_.emplace_back(gst_buffer_ref(buffer.get()));
    replayed_++;
    if (kept_bytes_ > kKeep) forget();
  }
  return buffer;
}

void Input::rewind() {
  replayed_ = 0;
  if (!file_) return;
  open();
}

void Input::forget() {
  keeping_ = false;
  kept_.erase(kept_.begin(), kept_.begin() + static_cast<std::ptrdiff_t>(replayed_));
  replayed_ = 0;
}

void Input::examine() {
  std::string bytes;
  while (bytes.size() < kLookAt && packet_size_ == 0) {
    const BufferPtr buffer = next();
    if (buffer == nullptr) break;
    const MappedBuffer map(buffer.get());
    bytes.append(reinterpret_cast<const char*>(map.data()), map.size());
    for (std::size_t at = 0; at < bytes.size() && packet_size_ == 0; at++)
      for (const unsigned size : {188U, 192U, 204U})
        if (repeats(bytes, at, size)) {
          packet_size_ = size;
          // A time stamp is a part of its packet.
          junk_ = at - (size == 192 ? std::min<std::size_t>(at, 4) : 0);
          break;
        }
  }
  if (bytes.empty() && !interrupted())
    throw Failure(Status::kNoInput, location_ + (live_ ? ": nothing comes in" : ": is empty"));
  if (packet_size_ == 0 && !interrupted())
    throw Failure(Status::kNoStream,
                  location_ + ": is no MPEG transport stream (no five packets of 188, 192 or 204 "
                              "bytes in a row in its first MiB)");
  rewind();
}

}  // namespace tools
