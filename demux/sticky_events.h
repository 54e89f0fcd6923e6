// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <vector>

#include "instance/instance.h"

namespace vantrel {

// What a source pad says of itself: stream-start, caps, segment, EOS. No
// buffers flow that would carry these to a peer that missed them, so they are
// brought to it. All functions run without stream_lock.
//
// A blocked pad would hold the thread that pushes, often the very one that is to
// unblock it; so would one behind it. There the events are kept and go out from a
// thread of the framework's, which waits in their place.

/// True where a push waits: a probe blocks the pad, the one at the other end, or one of
/// those that bins put in between.
bool is_blocked(GstPad* pad);

/// Every source pad of the element, those without a stream too.
std::vector<PadRef> source_pads(GstVantrel* self);

/// Sends the pad's stream-start: the id made from upstream's and the pad's
/// name, the group that all pads of the element are in.
void send_stream_start(GstVantrel* self, GstPad* pad);

/// Sends caps, and remembers them for the next start-up. demux_lock held.
void send_caps(GstVantrel* self, GstPad* pad, GstCaps* caps);

/// Sends the segment and the EOS that have passed the sink pad.
void send_upstreams_position(GstVantrel* self, GstPad* pad);

/// Brings the peer what it has not got of what is stored on the pad; a peer
/// behind the pads of bins as well.
void deliver_stored_events(GstVantrel* self, GstPad* pad);

/// Sends stream-start and caps again on every source pad: READY drops what was
/// sent before. demux_lock held.
void announce_pads(GstVantrel* self);

/// Sends stream-start, and what is stored behind it, on every source pad once
/// another one is stored on the sink pad.
void announce_stream_start(GstVantrel* self);

}  // namespace vantrel
