// SPDX-License-Identifier: LGPL-2.1-or-later
#include "demux/change.h"

#include <array>

#include "demux/pads.h"
#include "demux/pes_filter.h"
#include "demux/stream_table.h"
#include "instance/log.h"

namespace vantrel {
namespace {

constexpr const char* kChange = "gst_tv_ts_demux_change_stream";

/// Contents whose filter on the same PID is stopped, by the new content.
constexpr auto kConflicts = std::to_array<guint>({
    /* VIDEO */ kAudioContents | kTextContents,
    /* AUDIO */ kVideoContents | kTextContents | content_bit(STREAM_CONTENT_AUDIO_DESC),
    /* SUBTITLE */ content_bit(STREAM_CONTENT_TELETEXT),
    /* TELETEXT */ content_bit(STREAM_CONTENT_SUBTITLE),
    /* PCR */ kTextContents,
    /* VIDEO_SUB */ kAudioContents | kTextContents,
    /* AUDIO_DESC */ kVideoContents | content_bit(STREAM_CONTENT_AUDIO) | kTextContents,
});

void stop_same_pid_locked(GstVantrel* self, guint content, guint pid) {
  if (content >= kConflicts.size()) return;
  for (const StreamPtr& stream : streams_locked(self)) {
    if (stream->pid != pid || !contains(kConflicts[content], stream->content)) continue;
    gst_tv_ts_demux_stop_demux(stream.get());
    LOG_INFO_AS(kChange,
                "[GST_VANTREL] can not set same PID, so stop filter: fd[%d], content[%d], pid[%d]",
                stream->fd, stream->content, pid);
  }
}

enum class Reuse { kNo, kRecord, kProgram };

/// Whether an existing stream of the same content takes the new PID.
Reuse reuse_of(const GstVantrel* self, const GstTvTsDemuxStream* stream, guint pid) {
  if (stream->pad) {
    const bool own_caption_slot =
        stream->content == STREAM_CONTENT_SUBTITLE && self->isdb_index != 0 && stream->pid != pid;
    return own_caption_slot ? Reuse::kNo : Reuse::kProgram;
  }
  if (stream->content == STREAM_CONTENT_PCR) return Reuse::kProgram;
  return self->dmx_type <= DMX_TYPE_PVR_PLAYBACK ? Reuse::kRecord : Reuse::kNo;
}

void reprogram(GstVantrel* self, GstTvTsDemuxStream* stream) {
  if (self->devices_created && !gst_tv_ts_demux_program_demux(self, stream))
    LOG_DEBUG_AS(kChange, "[GST_VANTREL] gst_tv_ts_demux_change_stream--->failed to change demux");
}

/// The caption slots of ISDB keep a stream each, so the walk goes past a
/// stream with a pad only for them, and ends there.
bool reuse_stream_locked(GstVantrel* self, guint content, guint pid, guint codec) {
  for (const StreamPtr& stream : streams_locked(self)) {
    if (stream->content != content) continue;
    const Reuse reuse = reuse_of(self, stream.get(), pid);
    if (reuse == Reuse::kNo) {
      if (stream->pad) return false;
      continue;
    }
    stream->pid = pid;
    stream->codec = codec;
    if (reuse == Reuse::kProgram) reprogram(self, stream.get());
    return true;
  }
  return false;
}

/// Opens and programs a stream registered after start-up.
bool start_new_stream(GstVantrel* self, const StreamPtr& stream) {
  std::lock_guard lock(self->stream_lock);
  const int index = stream_index_locked(self, stream.get());
  if (index < 0) return false;  // removed by a "pad-added" handler
  if (!gst_tv_ts_demux_open_demux(self, stream.get())) {
    LOG_DEBUG_AS(kChange,
                 "[GST_VANTREL] gst_tv_ts_demux_change_stream--->failed to open demux device %i",
                 index);
    return false;
  }
  if (!gst_tv_ts_demux_program_demux(self, stream.get())) {
    LOG_DEBUG_AS(kChange,
                 "[GST_VANTREL] gst_tv_ts_demux_change_stream--->failed to set demux device %i",
                 index);
    return false;
  }
  return true;
}

/// The record for the new PID, or an empty pointer; `reused` says that an
/// existing stream took it.
StreamPtr reuse_or_register(GstVantrel* self, GstTvTsDemuxStreamContent content, guint pid,
                            guint codec, bool* reused) {
  std::lock_guard lock(self->stream_lock);
  stop_same_pid_locked(self, content, pid);
  *reused = reuse_stream_locked(self, content, pid, codec);
  if (*reused) return nullptr;
  const int index = gst_tv_ts_demux_register_stream(self, content, pid, codec);
  return index >= 0 ? self->streams[index] : nullptr;
}

/// Takes a borrowed pad from the second videos that have it. Returns what is
/// to be dropped without stream_lock.
std::vector<PadRef> lose_borrowed_pad(GstVantrel* self, const PadRef& pad) {
  std::vector<PadRef> lost;
  visit_streams(self, content_bit(STREAM_CONTENT_VIDEO_SUB), [&](GstTvTsDemuxStream* stream) {
    if (stream->pad.get() == pad.get()) lost.push_back(std::move(stream->pad));
  });
  return lost;
}

/// Takes the record out of the table.
StreamPtr unregister(GstVantrel* self, const StreamPtr& stream) {
  std::lock_guard lock(self->stream_lock);
  const int index = stream_index_locked(self, stream.get());
  if (index < 0) return nullptr;
  return gst_tv_ts_demux_unregister_stream(self, static_cast<guint>(index));
}

/// Ends the stream's filter. The pad leaves the record here, so that a handler
/// of its removal who removes the stream again does not find it.
bool stop_and_close(GstVantrel* self, const StreamPtr& stream, PadRef* pad) {
  std::lock_guard lock(self->stream_lock);
  if (stream_index_locked(self, stream.get()) < 0) return false;
  gst_tv_ts_demux_stop_demux(stream.get());
  gst_tv_ts_demux_close_demux(stream.get());
  *pad = std::move(stream->pad);
  return true;
}

}  // namespace

gboolean gst_tv_ts_demux_change_stream(GstVantrel* self, GstTvTsDemuxStreamContent content,
                                       guint pid, guint codec) {
  PERF_BEGIN();
  std::lock_guard lock(self->demux_lock);
  bool reused = false;
  const StreamPtr stream = reuse_or_register(self, content, pid, codec, &reused);
  if (!reused) {
    if (stream == nullptr) return FALSE;
    LOG_DEBUG("[GST_VANTREL] gst_tv_ts_demux_change_stream--->gst_tv_ts_demux_register_stream!!");
    if (self->opened) {
      gst_tv_ts_demux_create_stream(self, stream);
      if (!start_new_stream(self, stream)) return FALSE;
    }
  }
  PERF_END();
  return TRUE;
}

void gst_tv_ts_demux_set_vpid(GstVantrel* self, GstTvTsDemuxStreamContent content) {
  // No other change of the PID comes in between: it would be undone.
  std::lock_guard operation(self->demux_lock);
  guint pid = 0;
  guint codec = 0;
  {
    std::lock_guard lock(self->stream_lock);
    const StreamPtr stream = first_stream_locked(self, content);
    if (stream == nullptr) {
      LOG_INFO("vpid was not set, stream_content[%d]", content);
      return;
    }
    pid = stream->pid;
    codec = stream->codec;
  }
  LOG_INFO("reset vpid for correct pestype, stream_content[%d]", content);
  gst_tv_ts_demux_change_stream(self, content, pid, codec);
}

void remove_stream(GstVantrel* self, const StreamPtr& stream) {
  PadRef pad;
  if (!stop_and_close(self, stream, &pad)) return;
  const bool borrowed = stream->content == STREAM_CONTENT_VIDEO_SUB;
  if (pad && !borrowed) {
    lose_borrowed_pad(self, pad);
    remove_pad(self, pad);
  }
  const StreamPtr removed = unregister(self, stream);
  if (!borrowed || !pad) return;
  if (const StreamPtr video = first_stream(self, STREAM_CONTENT_VIDEO))
    restore_video_pad(self, video);
}

void clear_streams(GstVantrel* self) {
  std::vector<StreamPtr> removed;
  std::lock_guard lock(self->stream_lock);
  while (self->n_streams != 0) {
    gst_tv_ts_demux_close_demux(self->streams[0].get());
    removed.push_back(gst_tv_ts_demux_unregister_stream(self, 0));
  }
}

}  // namespace vantrel
