// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "instance/instance.h"

namespace vantrel {

/// Gives a content a PID and a codec: in place of the one it has, or as a new
/// stream, which after start-up gets its pad, its node and a running filter at
/// once. Takes demux_lock. FALSE when the table is full, or a new stream's node
/// cannot be opened or programmed; the record stays then.
gboolean gst_tv_ts_demux_change_stream(GstVantrel* self, GstTvTsDemuxStreamContent content,
                                       guint pid, guint codec);

/// Programs the first stream of a video content again, now that its decoder
/// has a name. Takes demux_lock.
void gst_tv_ts_demux_set_vpid(GstVantrel* self, GstTvTsDemuxStreamContent content);

/// Removes one stream: filter stopped, node closed, pad taken from the element,
/// record unregistered. A pad that a second video borrows is lost by it first;
/// the second video itself leaves the pad to its owner. demux_lock held.
void remove_stream(GstVantrel* self, const StreamPtr& stream);

/// Closes every node and empties the table; pads stay. demux_lock held.
void clear_streams(GstVantrel* self);

}  // namespace vantrel
