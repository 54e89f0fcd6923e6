// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <span>
#include <vector>

#include "instance/instance.h"

namespace vantrel {

// The _locked functions expect stream_lock held; the others take it.

/// The records in table order, to be walked under the lock.
inline std::span<const StreamPtr> streams_locked(const GstVantrel* self) {
  return std::span(self->streams).first(self->n_streams);
}

/// Calls `step` with each record of one of the contents.
template <typename Step>
void visit_streams(GstVantrel* self, guint contents, Step&& step) {
  std::lock_guard lock(self->stream_lock);
  for (const StreamPtr& stream : streams_locked(self))
    if (contains(contents, stream->content)) step(stream.get());
}

/// First record of a content, in table order; empty when there is none.
StreamPtr first_stream_locked(const GstVantrel* self, guint content);
StreamPtr first_stream(GstVantrel* self, guint content);

/// Index of a record, or -1 when it is no longer in the table.
int stream_index_locked(const GstVantrel* self, const GstTvTsDemuxStream* stream);

/// The records as they stand, pinned, in table order. Loops that call out, or
/// let others in between two records, walk a snapshot.
std::vector<StreamPtr> stream_snapshot_locked(const GstVantrel* self);
std::vector<StreamPtr> stream_snapshot(GstVantrel* self);

/// The record's pad, with a reference of its own.
PadRef stream_pad(GstVantrel* self, const StreamPtr& stream);

/// Appends a record for the content, PID and codec; -1, after an error line,
/// when the table is full. stream_lock and demux_lock held.
int gst_tv_ts_demux_register_stream(GstVantrel* self, GstTvTsDemuxStreamContent content, guint pid,
                                    guint codec);

/// Takes the record at `index` out of the table and closes the gap; the caller
/// drops what is returned without stream_lock. Both locks held.
[[nodiscard]] StreamPtr gst_tv_ts_demux_unregister_stream(GstVantrel* self, guint index);

}  // namespace vantrel
