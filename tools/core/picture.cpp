// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/core/picture.h"

#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#include <gst/video/video.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>

#include "tools/core/failure.h"
#include "tools/core/gst_ptr.h"

namespace tools {
namespace {

/// Pictures looked at: the first ones are often black.
constexpr int kCandidates = 40;
/// Variance of what is worth showing; black with its noise has less.
constexpr double kEnoughDetail = 200;
constexpr GstClockTime kPatience = 20 * GST_SECOND;

/// What reads a stream type, and the first byte behind the start code of what a
/// decoder needs first, of which `mask` counts.
struct Decoder {
  unsigned stream_type;
  const char* parser;
  const char* decoder;
  std::uint8_t mask;
  std::uint8_t first;
};

constexpr auto kDecoders = std::to_array<Decoder>({
    {0x01, "mpegvideoparse", "avdec_mpegvideo", 0xFF, 0xB3},
    {0x02, "mpegvideoparse", "avdec_mpeg2video", 0xFF, 0xB3},
    {0x1B, "h264parse", "avdec_h264", 0x1F, 0x07},
    {0x24, "h265parse", "avdec_h265", 0x7E, 0x42},
});

const Decoder* decoder_of(unsigned stream_type) {
  for (const Decoder& row : kDecoders)
    if (row.stream_type == stream_type) return &row;
  return nullptr;
}

PipelinePtr launch(const std::string& description) {
  g_autoptr(GError) details = nullptr;
  GstElement* pipeline =
      gst_parse_launch_full(description.c_str(), nullptr, GST_PARSE_FLAG_FATAL_ERRORS, &details);
  if (pipeline == nullptr) throw Failure(Status::kFailed, details->message);
  return PipelinePtr(pipeline);
}

Picture picture_of(GstSample* sample) {
  Picture picture;
  GstVideoInfo info;
  GstVideoFrame frame;
  if (!gst_video_info_from_caps(&info, gst_sample_get_caps(sample)) ||
      !gst_video_frame_map(&frame, &info, gst_sample_get_buffer(sample), GST_MAP_READ))
    return picture;
  picture.width = GST_VIDEO_FRAME_WIDTH(&frame);
  picture.height = GST_VIDEO_FRAME_HEIGHT(&frame);
  picture.shown_width = picture.width * GST_VIDEO_INFO_PAR_N(&info) / GST_VIDEO_INFO_PAR_D(&info);
  const auto* data = static_cast<const std::uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, 0));
  for (int row = 0; row < picture.height; row++) {
    const std::uint8_t* line = data + row * GST_VIDEO_FRAME_PLANE_STRIDE(&frame, 0);
    picture.rgb.insert(picture.rgb.end(), line, line + 3 * picture.width);
  }
  gst_video_frame_unmap(&frame);
  return picture;
}

/// How much there is to see: the variance of the green bytes.
double detail(const Picture& picture) {
  double sum = 0;
  double squares = 0;
  std::size_t count = 0;
  for (std::size_t i = 1; i < picture.rgb.size(); i += 3 * 7, count++) {
    sum += picture.rgb[i];
    squares += double{1.0} * picture.rgb[i] * picture.rgb[i];
  }
  const double n = static_cast<double>(std::max<std::size_t>(count, 1));
  return squares / n - sum / n * (sum / n);
}

/// The bytes stay the caller's, and have to live as long as the pipeline.
void push_stream(GstElement* pipeline, const std::string& bytes) {
  g_autoptr(GstElement) source = gst_bin_get_by_name(GST_BIN(pipeline), "in");
  gst_app_src_push_buffer(
      GST_APP_SRC(source),
      gst_buffer_new_wrapped_full(GST_MEMORY_FLAG_READONLY, const_cast<char*>(bytes.data()),
                                  bytes.size(), 0, bytes.size(), nullptr, nullptr));
  gst_app_src_end_of_stream(GST_APP_SRC(source));
}

/// The time of key pictures, and of all behind the second one. Others have none, and
/// decoders let time not go back: what is shown before the first key picture comes
/// without, what is shown from there on comes with this. The second is for key
/// pictures of two fields, which may come with the time of the other field.
constexpr GstClockTime kFromKey = GST_SECOND;

GstPadProbeReturn stamp(GstPad*, GstPadProbeInfo* info, gpointer keys) {
  GstBuffer* buffer = gst_buffer_make_writable(GST_PAD_PROBE_INFO_BUFFER(info));
  const bool key = !GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_DELTA_UNIT);
  unsigned& count = *static_cast<unsigned*>(keys);
  if (key) count++;
  GST_BUFFER_PTS(buffer) = key || count > 1 ? kFromKey : 0;
  GST_BUFFER_DTS(buffer) = GST_CLOCK_TIME_NONE;
  info->data = buffer;
  return GST_PAD_PROBE_OK;
}

/// Counts them in `keys`, which has to live as long as the pipeline.
void stamp_key_pictures(GstElement* pipeline, unsigned* keys) {
  g_autoptr(GstElement) decoder = gst_bin_get_by_name(GST_BIN(pipeline), "decoder");
  g_autoptr(GstPad) pad = gst_element_get_static_pad(decoder, "sink");
  gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BUFFER, stamp, keys, nullptr);
}

/// Pictures that refer to others before the first key picture are left out; where
/// `damaged` ones will do, the last one has the least of it.
Picture best_of(GstElement* pipeline, bool damaged) {
  g_autoptr(GstElement) sink = gst_bin_get_by_name(GST_BIN(pipeline), "out");
  Picture best;
  for (int i = 0; i < kCandidates; i++) {
    g_autoptr(GstSample) sample = gst_app_sink_try_pull_sample(GST_APP_SINK(sink), kPatience);
    if (sample == nullptr) break;
    if (!damaged && GST_BUFFER_PTS(gst_sample_get_buffer(sample)) < kFromKey) continue;
    Picture picture = picture_of(sample);
    if (damaged || best.empty() || detail(picture) > detail(best)) best = std::move(picture);
    if (!damaged && detail(best) > kEnoughDetail) break;
  }
  return best;
}

/// Rows of packed RGB are padded to four bytes.
std::string padded_rows(const Picture& picture) {
  const std::size_t line = 3 * static_cast<std::size_t>(picture.width);
  std::string padded;
  for (int row = 0; row < picture.height; row++) {
    const auto* from =
        reinterpret_cast<const char*>(picture.rgb.data()) + static_cast<std::size_t>(row) * line;
    padded.append(from, line);
    padded.resize((padded.size() + 3) / 4 * 4);
  }
  return padded;
}

void append_cell(std::string* out, const std::uint8_t* upper, const std::uint8_t* lower) {
  std::array<char, 64> cell;
  std::snprintf(cell.data(), cell.size(), "\033[38;2;%d;%d;%dm\033[48;2;%d;%d;%dm▀", upper[0],
                upper[1], upper[2], lower[0], lower[1], lower[2]);
  *out += cell.data();
}

/// With max-threads=1 the decoder loses the first key picture of interlaced H.264.
Picture decode(const std::string& stream, const Decoder& row, int widest, bool damaged) {
  const std::string size =
      widest > 0 ? ",pixel-aspect-ratio=1/1,width=[1," + std::to_string(widest) + "]" : "";
  unsigned keys = 0;  // the pipeline's streaming thread's
  const PipelinePtr pipeline =
      launch(std::string("appsrc name=in ! ") + row.parser + " ! " + row.decoder +
             " name=decoder output-corrupt=" + (damaged ? "true" : "false") +
             " ! videoconvertscale ! video/x-raw,format=RGB" + size +
             " ! appsink name=out sync=false max-buffers=1");
  stamp_key_pictures(pipeline.get(), &keys);
  gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
  push_stream(pipeline.get(), stream);
  return best_of(pipeline.get(), damaged);
}

}  // namespace

bool has_beginning(std::string_view elementary_stream, unsigned stream_type) {
  const Decoder* row = decoder_of(stream_type);
  if (row == nullptr) return false;
  constexpr std::string_view kStartCode("\0\0\1", 3);
  for (std::size_t at = 0;
       (at = elementary_stream.find(kStartCode, at)) != std::string_view::npos;) {
    at += kStartCode.size();
    if (at < elementary_stream.size() &&
        (static_cast<std::uint8_t>(elementary_stream[at]) & row->mask) == row->first)
      return true;
  }
  return false;
}

Picture decode_picture(const std::string& elementary_stream, unsigned stream_type, int widest) {
  const Decoder* row = decoder_of(stream_type);
  if (row == nullptr) throw Failure(Status::kFailed, "no decoder for this kind of video");
  Picture best = decode(elementary_stream, *row, widest, false);
  // Without a key picture all are damaged, and one of them is better than none.
  if (best.empty()) best = decode(elementary_stream, *row, widest, true);
  if (best.empty()) throw Failure(Status::kFailed, "the decoder found no picture in it");
  return best;
}

std::string encode_png(const Picture& picture) {
  const std::string rows = padded_rows(picture);
  const PipelinePtr pipeline =
      launch("appsrc name=in format=time ! pngenc ! appsink name=out sync=false");
  g_autoptr(GstElement) source = gst_bin_get_by_name(GST_BIN(pipeline.get()), "in");
  g_autoptr(GstElement) sink = gst_bin_get_by_name(GST_BIN(pipeline.get()), "out");
  g_autoptr(GstCaps) caps = gst_caps_new_simple(
      "video/x-raw", "format", G_TYPE_STRING, "RGB", "width", G_TYPE_INT, picture.width, "height",
      G_TYPE_INT, picture.height, "framerate", GST_TYPE_FRACTION, 0, 1, nullptr);
  g_object_set(source, "caps", caps, nullptr);
  gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
  push_stream(pipeline.get(), rows);
  g_autoptr(GstSample) sample = gst_app_sink_try_pull_sample(GST_APP_SINK(sink), kPatience);
  if (sample == nullptr) throw Failure(Status::kFailed, "the picture cannot be encoded");
  const MappedBuffer map(gst_sample_get_buffer(sample));
  return {reinterpret_cast<const char*>(map.data()), map.size()};
}

void write_png(const Picture& picture, const std::string& path) {
  const std::string png = encode_png(picture);
  errno = 0;
  std::ofstream file(path, std::ios::binary);
  file.write(png.data(), static_cast<std::streamsize>(png.size()));
  file.close();
  if (!file)
    throw Failure(Status::kNoOutput,
                  path + ": " + (errno != 0 ? std::strerror(errno) : "cannot be written"));
}

std::string draw(const Picture& picture, int columns) {
  const int rows = columns * picture.height / picture.width / 2 * 2;
  std::string out;
  for (int row = 0; row + 1 < rows; row += 2) {
    for (int column = 0; column < columns; column++) {
      const auto pixel = [&](int y) {
        const int at_x = column * picture.width / columns;
        const int at_y = y * picture.height / rows;
        return picture.rgb.data() + 3 * (at_y * picture.width + at_x);
      };
      append_cell(&out, pixel(row), pixel(row + 1));
    }
    out += "\033[0m\n";
  }
  return out;
}

}  // namespace tools
