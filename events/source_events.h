// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <gst/gst.h>

namespace vantrel {

/// Event function of every source pad: seeks and the decoders' custom upstream
/// events; other events are dropped with TRUE. Takes stream_lock for each step
/// on filters and pushes without it.
gboolean gst_tv_ts_demux_handle_src_event(GstPad* pad, GstObject* parent, GstEvent* event);

}  // namespace vantrel
