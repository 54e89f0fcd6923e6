// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/core/make_stream.h"

#include <gst/app/gstappsink.h>
#include <gst/gst.h>

#include <cerrno>
#include <cstring>
#include <fstream>

#include "tools/core/failure.h"
#include "tools/core/gst_ptr.h"
#include "tools/core/progress.h"
#include "tools/core/si_writer.h"

namespace tools {
namespace {

constexpr int kSeconds = 10;
constexpr std::size_t kPacketSize = 188;
/// Packets between two rounds of service information.
constexpr std::size_t kSiDistance = 400;
constexpr std::uint16_t kServiceId = 1;

const char* const kPipeline =
    "mpegtsmux name=mux alignment=7 ! appsink name=out sync=false "
    "videotestsrc num-buffers=250 pattern=smpte ! "
    "video/x-raw,format=I420,width=640,height=360,framerate=25/1 ! timeoverlay ! "
    "x264enc bitrate=1500 key-int-max=25 speed-preset=veryfast ! h264parse ! queue ! "
    "mux.sink_256 "
    "audiotestsrc num-buffers=469 samplesperbuffer=1024 freq=440 ! audio/x-raw,rate=48000 ! "
    "audioconvert ! avenc_mp2 ! taginject tags=language-code=eng ! mpegaudioparse ! queue ! "
    "mux.sink_257 "
    "audiotestsrc num-buffers=469 samplesperbuffer=1024 freq=660 ! audio/x-raw,rate=48000 ! "
    "audioconvert ! avenc_mp2 ! taginject tags=language-code=deu ! mpegaudioparse ! queue ! "
    "mux.sink_258 ";

/// Writes the multiplexer's packets with service information between them.
class File {
 public:
  explicit File(const std::string& path) : file_(path, std::ios::binary) {}

  void write(const std::uint8_t* data, std::size_t size) {
    for (std::size_t at = 0; at + kPacketSize <= size; at += kPacketSize) {
      if (packets_++ % kSiDistance == 0) put(si_.packets());
      file_.write(reinterpret_cast<const char*>(data + at), kPacketSize);
    }
  }
  bool finish() { return file_.flush().good(); }
  [[nodiscard]] bool good() const { return file_.good(); }

 private:
  void put(const Bytes& bytes) {
    file_.write(reinterpret_cast<const char*>(bytes.data()),
                static_cast<std::streamsize>(bytes.size()));
  }

  std::ofstream file_;
  std::size_t packets_ = 0;
  SiWriter si_{{.transport_stream_id = 1,
                .service_id = kServiceId,
                .network = "Vantrel Net",
                .provider = "vantrel",
                .name = "Test Card",
                .present_event = "Colour bars",
                .following_event = "More colour bars"}};
};

std::string take_error(GstElement* pipeline) {
  g_autoptr(GstBus) bus = gst_element_get_bus(pipeline);
  const MessagePtr message(gst_bus_pop_filtered(bus, GST_MESSAGE_ERROR));
  return message != nullptr ? error_text(message.get()) : "";
}

void copy_samples(GstElement* pipeline, File* file) {
  g_autoptr(GstElement) sink = gst_bin_get_by_name(GST_BIN(pipeline), "out");
  Progress progress("making a stream", std::uint64_t{kSeconds} * GST_SECOND);
  while (g_autoptr(GstSample) sample = gst_app_sink_pull_sample(GST_APP_SINK(sink))) {
    GstBuffer* buffer = gst_sample_get_buffer(sample);
    const MappedBuffer map(buffer);
    file->write(map.data(), map.size());
    if (GST_BUFFER_PTS_IS_VALID(buffer))
      progress.show(GST_BUFFER_PTS(buffer) % (3600 * GST_SECOND));
  }
}

}  // namespace

void make_stream(const std::string& path) {
  g_autoptr(GError) parse_error = nullptr;
  const PipelinePtr pipeline(
      gst_parse_launch_full(kPipeline, nullptr, GST_PARSE_FLAG_FATAL_ERRORS, &parse_error));
  if (pipeline == nullptr)
    throw Failure(Status::kFailed, std::string("cannot make a stream: ") + parse_error->message);
  File file(path);
  if (!file.good()) throw Failure(Status::kNoOutput, path + ": " + std::strerror(errno));
  gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
  copy_samples(pipeline.get(), &file);
  const std::string error = take_error(pipeline.get());
  if (!error.empty()) throw Failure(Status::kFailed, error);
  if (!file.finish()) throw Failure(Status::kNoOutput, path + ": cannot be written");
}

}  // namespace tools
