// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "instance/instance.h"

namespace vantrel {

// A stream's demux node, from open to close. The caller holds stream_lock for
// each call, and for a sequence of them that must not be interrupted.

/// Gives the stream an open node: the one handed over for its content, or a
/// new one. Returns FALSE, after an error line, when there is none.
gboolean gst_tv_ts_demux_open_demux(GstVantrel* self, GstTvTsDemuxStream* stream);

/// Programs the stream's PES filter and starts it. Driver failures are logged
/// and do not end the sequence; FALSE only without a stream.
gboolean gst_tv_ts_demux_program_demux(GstVantrel* self, GstTvTsDemuxStream* stream);

/// Starts a stopped filter; FALSE when the driver refuses.
gboolean gst_tv_ts_demux_start_demux(GstTvTsDemuxStream* stream);

/// Stops a running filter; FALSE when the driver refuses.
gboolean gst_tv_ts_demux_stop_demux(GstTvTsDemuxStream* stream);

/// Closes the node; the filter is not stopped first.
gboolean gst_tv_ts_demux_close_demux(GstTvTsDemuxStream* stream);

}  // namespace vantrel
