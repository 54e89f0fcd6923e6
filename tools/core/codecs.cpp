// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/core/codecs.h"

#include <array>
#include <cstdio>

namespace tools {
namespace {

struct Codec {
  unsigned tag;  // stream type, descriptor tag
  const char* kind;
  const char* name;
  unsigned codec_id;
};

// ISO/IEC 13818-1, table 2-34, and what ATSC and SCTE added.
constexpr auto kCodecs = std::to_array<Codec>({
    {0x01, "video", "MPEG-1 video", 1},
    {0x02, "video", "MPEG-2 video", 2},
    {0x03, "audio", "MPEG-1 audio", 6},
    {0x04, "audio", "MPEG-2 audio", 6},
    {0x05, "data", "private sections", 0},
    {0x06, "data", "private PES", 0},
    {0x08, "data", "DSM-CC", 0},
    {0x0A, "data", "DSM-CC multiprotocol", 0},
    {0x0B, "data", "DSM-CC messages", 0},
    {0x0C, "data", "DSM-CC stream events", 0},
    {0x0D, "data", "DSM-CC sections", 0},
    {0x0F, "audio", "AAC", 11},
    {0x10, "video", "MPEG-4 video", 0},
    {0x11, "audio", "AAC (LATM)", 11},
    {0x15, "data", "metadata", 0},
    {0x1B, "video", "H.264", 3},
    {0x20, "video", "H.264 MVC", 3},
    {0x21, "video", "JPEG 2000", 0},
    {0x24, "video", "HEVC", 4},
    {0x33, "video", "VVC", 0},
    {0x42, "video", "AVS", 0},
    {0x81, "audio", "AC-3", 9},
    {0x82, "audio", "DTS", 10},
    {0x86, "data", "SCTE 35 splices", 0},
    {0x87, "audio", "E-AC-3", 9},
    {0x8A, "audio", "DTS", 10},
    {0xEA, "video", "VC-1", 0},
});

// Descriptors that tell what a stream of type 5 or 6 carries.
constexpr auto kPrivateCodecs = std::to_array<Codec>({
    {0x59, "subtitle", "DVB subtitles", 29},
    {0x56, "teletext", "teletext", 30},
    {0x46, "teletext", "VBI teletext", 30},
    {0x6A, "audio", "AC-3", 9},
    {0x7A, "audio", "E-AC-3", 9},
    {0x7B, "audio", "DTS", 10},
    {0x7C, "audio", "AAC", 11},
    {0x6F, "data", "AIT", 0},
});

// Format identifiers of registration descriptors.
struct Registration {
  const char* format;
  Codec codec;
};

constexpr auto kRegistrations = std::to_array<Registration>({
    {"AC-3", {0, "audio", "AC-3", 9}},
    {"EAC3", {0, "audio", "E-AC-3", 9}},
    {"HEVC", {0, "video", "HEVC", 4}},
    {"DTS1", {0, "audio", "DTS", 10}},
    {"DTS2", {0, "audio", "DTS", 10}},
    {"DTS3", {0, "audio", "DTS", 10}},
    {"BSSD", {0, "audio", "AES3 PCM", 0}},
    {"Opus", {0, "audio", "Opus", 0}},
    {"KLVA", {0, "data", "KLV metadata", 0}},
    {"AV01", {0, "video", "AV1", 0}},
});

// The descriptors that carry a language, in order; all begin with the code.
constexpr auto kLanguageTags = std::to_array<guint8>(
    {GST_MTS_DESC_ISO_639_LANGUAGE, GST_MTS_DESC_DVB_SUBTITLING, GST_MTS_DESC_DVB_TELETEXT});

std::string language_of(GPtrArray* descriptors) {
  for (const guint8 tag : kLanguageTags) {
    const GstMpegtsDescriptor* found = gst_mpegts_find_descriptor(descriptors, tag);
    // Behind tag and length.
    if (found != nullptr && found->length >= 3)
      return {reinterpret_cast<const char*>(found->data) + 2, 3};
  }
  return "";
}

const Codec* registered_codec(GPtrArray* descriptors) {
  const GstMpegtsDescriptor* found =
      gst_mpegts_find_descriptor(descriptors, GST_MTS_DESC_REGISTRATION);
  if (found == nullptr || found->length < 4) return nullptr;
  const std::string_view format(reinterpret_cast<const char*>(found->data) + 2, 4);
  for (const Registration& row : kRegistrations)
    if (format == row.format) return &row.codec;
  return nullptr;
}

/// Captions of ISDB have a data component descriptor (ARIB STD-B10, 6.2.20) with
/// this id; their characters are none of DVB's subtitles.
constexpr Codec kCaptions = {0xFD, "subtitle", "ARIB captions", 0};
constexpr unsigned kCaptionComponent = 0x0008;

bool has_captions(GPtrArray* descriptors) {
  const GstMpegtsDescriptor* found = gst_mpegts_find_descriptor(descriptors, kCaptions.tag);
  return found != nullptr && found->length >= 2 &&
         GST_READ_UINT16_BE(found->data + 2) == kCaptionComponent;
}

const Codec* private_codec(GPtrArray* descriptors) {
  if (has_captions(descriptors)) return &kCaptions;
  for (const Codec& row : kPrivateCodecs)
    if (gst_mpegts_find_descriptor(descriptors, static_cast<guint8>(row.tag))) return &row;
  return registered_codec(descriptors);
}

const Codec* codec_of(const GstMpegtsPMTStream& stream) {
  if (stream.stream_type == 0x05 || stream.stream_type == 0x06)
    if (const Codec* found = private_codec(stream.descriptors)) return found;
  for (const Codec& row : kCodecs)
    if (row.tag == stream.stream_type) return &row;
  return registered_codec(stream.descriptors);
}

}  // namespace

StreamInfo describe_stream(const GstMpegtsPMTStream& stream) {
  StreamInfo info;
  info.pid = stream.pid;
  info.stream_type = stream.stream_type;
  info.language = language_of(stream.descriptors);
  if (const Codec* codec = codec_of(stream)) {
    info.kind = codec->kind;
    info.codec = codec->name;
    info.codec_id = codec->codec_id;
  } else {
    std::array<char, 32> text;
    std::snprintf(text.data(), text.size(), "stream type 0x%02x", info.stream_type);
    info.kind = "data";
    info.codec = text.data();
  }
  return info;
}

}  // namespace tools
