// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <glib.h>

namespace vantrel {

/// The four-character code of a "video-codec-type" value; "MPG2", after an info
/// line, for a value that is none.
guint32 gst_tv_ts_demux_convert_v4l2_video_codec_type(gint value);

/// The inverse; -1, after an info line, for a code that is none.
gint gst_tv_ts_demux_convert_tvp_video_codec_type(guint32 code);

}  // namespace vantrel
