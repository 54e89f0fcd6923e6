// SPDX-License-Identifier: LGPL-2.1-or-later
#include "demux/caps.h"

#include <array>
#include <variant>

#include "instance/log.h"

namespace {

struct CapsField {
  const char* name = nullptr;
  std::variant<int, bool, const char*> value;
};

struct CapsRow {
  guint codec_id;
  const char* media_type;
  std::array<CapsField, 4> fields;  // up to the first without a name
};

// Decoders match against these types and values, so they stay as they are
// where they differ from the usual caps.
constexpr auto kCapsRows = std::to_array<CapsRow>({
    {1, "video/mpeg", {{{"mpegversion", 1}, {"systemstream", false}}}},
    {2, "video/mpeg", {{{"mpegversion", 2}, {"systemstream", false}}}},
    {3, "video/x-h264", {{{"h264version", 1}, {"systemstream", false}}}},
    {4, "video/x-hevc", {{{"hevcversion", 1}, {"systemstream", false}}}},
    {5, "audio/mpeg", {{{"mpegversion", 1}, {"layer", 1}}}},
    {6, "audio/mpeg", {{{"mpegversion", 1}, {"layer", 2}}}},
    {7, "audio/mpeg", {{{"mpegversion", 1}, {"layer", 3}}}},
    {9, "audio/x-ac3", {{{"ac3version", 1}, {"layer", 5}}}},
    {10, "audio/x-dts", {{{"dtsversion", 1}, {"layer", 6}}}},
    {11, "audio/mpeg", {{{"mpegversion", 1}, {"layer", 4}}}},
    {12,
     "audio/x-raw-int",
     {{{"width", 8}, {"depth", 8}, {"endianness", G_LITTLE_ENDIAN}, {"signed", false}}}},
    {13,
     "audio/x-raw-int",
     {{{"width", 8}, {"depth", 8}, {"endianness", G_LITTLE_ENDIAN}, {"signed", true}}}},
    {14,
     "audio/x-raw-int",
     {{{"width", 16}, {"depth", 16}, {"endianness", G_LITTLE_ENDIAN}, {"signed", true}}}},
    {15,
     "audio/x-raw-int",
     {{{"width", 16}, {"depth", 16}, {"endianness", G_BIG_ENDIAN}, {"signed", true}}}},
    {16,
     "audio/x-raw-int",
     {{{"width", 16}, {"depth", 16}, {"endianness", G_LITTLE_ENDIAN}, {"signed", false}}}},
    {17,
     "audio/x-raw-int",
     {{{"width", 16}, {"depth", 16}, {"endianness", G_BIG_ENDIAN}, {"signed", false}}}},
    {18,
     "audio/x-raw-int",
     {{{"width", 24}, {"depth", 24}, {"endianness", G_LITTLE_ENDIAN}, {"signed", true}}}},
    {19,
     "audio/x-raw-int",
     {{{"width", 32}, {"depth", 32}, {"endianness", G_LITTLE_ENDIAN}, {"signed", true}}}},
    {21, "audio/x-private-ts-lpcm", {{{"lpcmversion", 1}}}},
    {22, "audio/x-adpcm", {{{"layout", "microsoft"}}}},
    {23, "audio/x-adpcm", {{{"layout", "dvi"}}}},
    {24, "audio/x-wma", {{{"wmaversion", 1}}}},
    {25, "audio/x-wma", {{{"wmaversion", 2}}}},
    {26, "audio/x-wma", {{{"wmaversion", 3}}}},
    {27, "audio/x-mlp", {{{"layout", "microsoft"}}}},
    {28, "audio/x-dra", {{{"layout", "microsoft"}}}},
    {29, "subpicture/x-dvb", {{{"layout", 1}}}},
    {30, "private/teletext", {{{"layout", 2}}}},
});
static_assert(kCapsRows.size() == 28);

const CapsRow* row_of(guint codec_id) {
  for (const CapsRow& row : kCapsRows)
    if (row.codec_id == codec_id) return &row;
  return nullptr;
}

void set_field(GstStructure* structure, const CapsField& field) {
  if (const int* number = std::get_if<int>(&field.value))
    gst_structure_set(structure, field.name, G_TYPE_INT, *number, nullptr);
  else if (const bool* flag = std::get_if<bool>(&field.value))
    gst_structure_set(structure, field.name, G_TYPE_BOOLEAN, *flag, nullptr);
  else
    gst_structure_set(structure, field.name, G_TYPE_STRING, std::get<const char*>(field.value),
                      nullptr);
}

GstCaps* make_caps(const CapsRow& row) {
  // By quark: by name the framework would warn of "audio/x-raw-int" each time.
  GstStructure* structure = gst_structure_new_id_empty(g_quark_from_static_string(row.media_type));
  for (const CapsField& field : row.fields)
    if (field.name != nullptr) set_field(structure, field);
  return gst_caps_new_full(structure, nullptr);
}

}  // namespace

GstCaps* gst_vantrel_map_caps(guint codec_id) {
  LOG_DEBUG("codec:[%d]", codec_id);
  const CapsRow* row = row_of(codec_id);
  if (row == nullptr) LOG_DEBUG("No caps found for codec_id=%d", codec_id);
  GstCaps* caps = row != nullptr ? make_caps(*row) : nullptr;
  LOG_DEBUG("codec [%d]", codec_id);
  return caps;
}

GstCaps* gst_tv_ts_demux_map_caps(GstVantrel* vantrel, guint index) {
  PERF_BEGIN();
  guint codec = 0;
  {
    std::lock_guard lock(vantrel->stream_lock);
    if (index >= kMaxStreams || vantrel->streams[index] == nullptr) {
      LOG_DEBUG(" stream is NULL");
      return nullptr;
    }
    codec = vantrel->streams[index]->codec;
  }
  GstCaps* caps = gst_vantrel_map_caps(codec);
  if (caps == nullptr) LOG_DEBUG("No caps found for codec_id=%d", codec);
  PERF_END();
  return caps;
}
