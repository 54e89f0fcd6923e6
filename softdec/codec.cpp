// SPDX-License-Identifier: LGPL-2.1-or-later
#include "softdec/codec.h"

#include <array>

namespace softdec {
namespace {

constexpr const char* kAc3 = "audio/x-ac3";
constexpr const char* kEnhancedAc3 = "audio/x-eac3";

/// Announced types with another form in a parser's caps.
struct TypeRow {
  const char* announced;
  const char* stream;
  bool sniffed;  // one of the types that syncwords tell apart
};

constexpr auto kTypes = std::to_array<TypeRow>({
    {"video/x-h264", "video/x-h264, stream-format=(string)byte-stream", false},
    {"video/x-hevc", "video/x-h265, stream-format=(string)byte-stream", false},
    {"audio/mpeg", "audio/mpeg, mpegversion=(int)1", true},
    {"audio/x-ac3", kAc3, true},
    {"audio/x-dts", "audio/x-dts", false},
});

/// What a frame of audio begins with.
struct SyncRow {
  unsigned mask;
  unsigned value;
  const char* stream;
};

constexpr auto kSyncwords = std::to_array<SyncRow>({
    {0xFFE0, 0x56E0, "audio/mpeg, mpegversion=(int)4, stream-format=(string)loas"},
    {0xFFFE, 0xFFF0, "audio/mpeg, mpegversion=(int)4, stream-format=(string)adts"},
    {0xFFFE, 0xFFF8, "audio/mpeg, mpegversion=(int)2, stream-format=(string)adts"},
    {0xFFE0, 0xFFE0, "audio/mpeg, mpegversion=(int)1"},
    {0xFFFF, 0x0B77, kAc3},
});

struct FourccRow {
  std::uint32_t fourcc;
  const char* announced;
};

constexpr auto kFourccs = std::to_array<FourccRow>({
    {GST_MAKE_FOURCC('M', 'P', 'G', '2'),
     "video/mpeg, mpegversion=(int)2, systemstream=(boolean)false"},
    {GST_MAKE_FOURCC('H', '2', '6', '4'), "video/x-h264"},
    {GST_MAKE_FOURCC('H', '2', '6', '5'), "video/x-hevc"},
});

/// bsid above 10 is the enhanced form of AC-3 (ETSI TS 102 366, annex E).
const char* sniffed_type(const std::vector<std::uint8_t>& payload) {
  if (payload.size() < 6) return nullptr;
  const unsigned word = unsigned{payload[0]} << 8 | payload[1];
  for (const SyncRow& row : kSyncwords)
    if ((word & row.mask) == row.value)
      return row.stream == kAc3 && payload[5] >> 3 > 10 ? kEnhancedAc3 : row.stream;
  return nullptr;
}

}  // namespace

GstCaps* stream_caps(GstCaps* announced, const std::vector<std::uint8_t>& payload,
                     GstCaps* current) {
  const GstStructure* structure = gst_caps_get_structure(announced, 0);
  for (const TypeRow& row : kTypes) {
    if (!gst_structure_has_name(structure, row.announced)) continue;
    const char* found = row.sniffed ? sniffed_type(payload) : nullptr;
    if (row.sniffed && found == nullptr && current != nullptr) return gst_caps_ref(current);
    return gst_caps_from_string(found != nullptr ? found : row.stream);
  }
  return gst_caps_ref(announced);
}

GstCaps* caps_of_fourcc(std::uint32_t fourcc) {
  for (const FourccRow& row : kFourccs)
    if (row.fourcc == fourcc) return gst_caps_from_string(row.announced);
  return nullptr;
}

}  // namespace softdec
