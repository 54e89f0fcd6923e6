// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <gst/gst.h>

namespace vantrel {

/// Event function of the sink pad: stream announcements become stream changes,
/// everything else goes to the default handling. Takes no lock itself.
gboolean gst_tv_ts_demux_handle_sink_event(GstPad* pad, GstObject* parent, GstEvent* event);

}  // namespace vantrel
