// SPDX-License-Identifier: LGPL-2.1-or-later
#include "config/video_codec.h"

#include <algorithm>
#include <array>

#include "instance/instance.h"
#include "instance/log.h"

namespace vantrel {
namespace {

/// Codes by property value.
constexpr auto kCodes = std::to_array<guint32>(
    {fourcc('M', 'P', 'G', '2'), fourcc('H', '2', '6', '4'), fourcc('J', 'P', 'E', 'G'),
     fourcc('A', 'V', 'S', '0'), fourcc('H', '2', '6', '5')});
static_assert(kCodes[0] == 0x3247504D && kCodes[4] == 0x35363248);

constexpr char character(guint32 code, int index) { return static_cast<char>(code >> (8 * index)); }

}  // namespace

guint32 gst_tv_ts_demux_convert_v4l2_video_codec_type(gint value) {
  const bool known = value >= 0 && value < static_cast<gint>(kCodes.size());
  if (!known) LOG_INFO("videodec type convert error!");
  const guint32 code = kCodes[known ? value : 0];
  LOG_SYSTEM_INFO("convert video_codec_type from %d to %c%c%c%c", value, character(code, 0),
                  character(code, 1), character(code, 2), character(code, 3));
  return code;
}

gint gst_tv_ts_demux_convert_tvp_video_codec_type(guint32 code) {
  const auto found = std::find(kCodes.begin(), kCodes.end(), code);
  const gint value = found != kCodes.end() ? static_cast<gint>(found - kCodes.begin()) : -1;
  if (value < 0) LOG_INFO("videodec type convert error!");
  LOG_INFO("convert video_codec_type from %c%c%c%c to %d", character(code, 0), character(code, 1),
           character(code, 2), character(code, 3), value);
  return value;
}

}  // namespace vantrel
