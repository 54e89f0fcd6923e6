// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "instance/instance.h"

namespace vantrel {

// Source pads of streams. All functions run without stream_lock; those that
// make or take away pads with demux_lock held.

/// Makes the stream's source pad, or lets it borrow one. FALSE for a content
/// without a pad, for one that has a pad, and where the pad or its caps cannot
/// be had.
gboolean gst_tv_ts_demux_create_stream(GstVantrel* self, const StreamPtr& stream);

/// Makes the recorder's one pad, "spts_src", and adds it; empty on failure.
PadRef create_spts_pad(GstVantrel* self);

/// Deactivates a stream's pad and takes it from the element.
void remove_pad(GstVantrel* self, const PadRef& pad);

/// Gives the pad that a second video borrowed back to its owner: the owner's
/// caps and element-private pointer.
void restore_video_pad(GstVantrel* self, const StreamPtr& video);

}  // namespace vantrel
