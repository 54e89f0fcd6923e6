// SPDX-License-Identifier: LGPL-2.1-or-later
#include "demux/stream_table.h"

#include <algorithm>

#include "instance/log.h"

namespace vantrel {

StreamPtr first_stream_locked(const GstVantrel* self, guint content) {
  for (const StreamPtr& stream : streams_locked(self))
    if (stream->content == content) return stream;
  return nullptr;
}

StreamPtr first_stream(GstVantrel* self, guint content) {
  std::lock_guard lock(self->stream_lock);
  return first_stream_locked(self, content);
}

int stream_index_locked(const GstVantrel* self, const GstTvTsDemuxStream* stream) {
  for (guint i = 0; i < self->n_streams; i++)
    if (self->streams[i].get() == stream) return static_cast<int>(i);
  return -1;
}

std::vector<StreamPtr> stream_snapshot_locked(const GstVantrel* self) {
  const auto records = streams_locked(self);
  return {records.begin(), records.end()};
}

std::vector<StreamPtr> stream_snapshot(GstVantrel* self) {
  std::lock_guard lock(self->stream_lock);
  return stream_snapshot_locked(self);
}

PadRef stream_pad(GstVantrel* self, const StreamPtr& stream) {
  std::lock_guard lock(self->stream_lock);
  return stream->pad;
}

int gst_tv_ts_demux_register_stream(GstVantrel* self, GstTvTsDemuxStreamContent content, guint pid,
                                    guint codec) {
  PERF_BEGIN();
  if (self->n_streams >= kMaxStreams) {
    LOG_ERROR(" MAX STREAM error.");
    return -1;
  }
  auto stream = std::make_shared<GstTvTsDemuxStream>();
  stream->content = content;
  stream->pid = pid;
  stream->codec = codec;
  stream->demux_id = self->demux_id;
  stream->dmx_type = self->dmx_type;
  self->streams[self->n_streams] = std::move(stream);
  PERF_END();
  return static_cast<int>(self->n_streams++);
}

StreamPtr gst_tv_ts_demux_unregister_stream(GstVantrel* self, guint index) {
  PERF_BEGIN();
  StreamPtr removed = std::move(self->streams[index]);
  const auto first = self->streams.begin() + index;
  std::move(first + 1, self->streams.begin() + self->n_streams, first);
  self->streams[--self->n_streams].reset();
  LOG_DEBUG("gst_tv_ts_demux_unregister_stream!!!!\n");
  PERF_END();
  return removed;
}

}  // namespace vantrel
