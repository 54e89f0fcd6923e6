// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <memory>

#include "instance/object_ref.h"

/// What an elementary stream carries.
enum GstTvTsDemuxStreamContent : guint {
  STREAM_CONTENT_VIDEO = 0,
  STREAM_CONTENT_AUDIO = 1,
  STREAM_CONTENT_SUBTITLE = 2,
  STREAM_CONTENT_TELETEXT = 3,
  STREAM_CONTENT_PCR = 4,
  STREAM_CONTENT_VIDEO_SUB = 5,
  STREAM_CONTENT_AUDIO_DESC = 6,
  STREAM_CONTENT_OTHER = 7,
};

/// Sets of contents, one bit each.
constexpr guint content_bit(GstTvTsDemuxStreamContent content) { return 1U << content; }

constexpr guint kAllContents = ~0U;
constexpr guint kVideoContents =
    content_bit(STREAM_CONTENT_VIDEO) | content_bit(STREAM_CONTENT_VIDEO_SUB);
constexpr guint kAudioContents =
    content_bit(STREAM_CONTENT_AUDIO) | content_bit(STREAM_CONTENT_AUDIO_DESC);
/// What applications read themselves, through "pes-upload".
constexpr guint kTextContents =
    content_bit(STREAM_CONTENT_SUBTITLE) | content_bit(STREAM_CONTENT_TELETEXT);

/// Contents beyond the known ones are in kAllContents only.
constexpr bool contains(guint contents, guint content) {
  return contents == kAllContents || (content < 32 && (contents >> content & 1) != 0);
}

/// Demux types, the values of "demux-type".
enum DmxType : guint {
  DMX_TYPE_LIVE = 0,
  DMX_TYPE_PVR_PLAYBACK = 1,
  DMX_TYPE_DTV_RECORD = 2,
  DMX_TYPE_ATV_RECORD = 3,
};

constexpr bool is_record_mode(guint dmx_type) {
  return dmx_type == DMX_TYPE_DTV_RECORD || dmx_type == DMX_TYPE_ATV_RECORD;
}

/// A PID that no packet carries: a stream whose PID is not known yet.
constexpr guint kInvalidPid = 0xFFFF;

/// One elementary stream and the demux node that filters it.
///
/// Every field is guarded by the element's stream_lock; content, demux_id and
/// dmx_type do not change after registration.
struct GstTvTsDemuxStream {
  GstTvTsDemuxStreamContent content;
  guint pid;
  /// Source pad; empty until it is complete. A second video borrows the first
  /// video's.
  vantrel::PadRef pad;
  /// The element's demux id at registration; names the node when closing.
  guint demux_id;
  /// Descriptor of the node, -1 while not open.
  gint fd = -1;
  /// Codec id the pad's caps are made from.
  guint codec;
  /// The element's demux type at registration.
  guint dmx_type;
  /// TRUE once programmed or started, FALSE after a stop.
  gboolean running = FALSE;
};

namespace vantrel {
/// Pins a record: it stays valid, though perhaps no longer in the table.
using StreamPtr = std::shared_ptr<GstTvTsDemuxStream>;
}  // namespace vantrel
