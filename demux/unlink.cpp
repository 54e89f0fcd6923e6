// SPDX-License-Identifier: LGPL-2.1-or-later
#include "demux/unlink.h"

#include <qel/device.h>

#include "demux/stream_table.h"
#include "instance/log.h"

namespace vantrel {
namespace {

/// Sends the stop whether or not the filter is marked as running.
void stop_directly(GstTvTsDemuxStream* stream, const char* function, bool background_pcr) {
  if (stream->fd < 0) {
    LOG_INFO_AS(function, "fd < 0");
    return;
  }
  if (background_pcr)
    LOG_INFO_AS(function, "[XQJ] PCR OFF : DTV BG decoding ON");
  else
    LOG_INFO_AS(function, "KWRX_DMX_STOP: stream content[%d]", stream->content);
  qel_device_ioctl(stream->fd, KWRX_DMX_STOP, 0UL);
  stream->running = FALSE;
}

/// Stops the streams of `contents`, and in a pause those of `in_pause` too.
void stop_contents(GstObject* parent, const char* function, guint contents, guint in_pause) {
  if (parent == nullptr) return;
  auto* self = reinterpret_cast<GstVantrel*>(parent);
  if (self->paused) contents |= in_pause;
  visit_streams(self, contents, [&](GstTvTsDemuxStream* stream) {
    stop_directly(stream, function, contains(in_pause, stream->content));
  });
}

constexpr guint kPcr = content_bit(STREAM_CONTENT_PCR);

}  // namespace

void gst_tv_ts_demux_video_srcpad_unlink(GstPad*, GstObject* parent) {
  PERF_BEGIN();
  LOG_INFO("srcpad_unlink : videodec element is unlinked");
  stop_contents(parent, __func__, kVideoContents | kPcr, 0);
  PERF_END();
}

void gst_tv_ts_demux_audio_srcpad_unlink(GstPad*, GstObject* parent) {
  PERF_BEGIN();
  LOG_INFO("srcpad_unlink : audiodec element is unlinked");
  stop_contents(parent, __func__, content_bit(STREAM_CONTENT_AUDIO), kPcr);
  PERF_END();
}

void gst_tv_ts_demux_audiosub_srcpad_unlink(GstPad*, GstObject* parent) {
  PERF_BEGIN();
  LOG_INFO("srcpad_unlink : audio sub dec element is unlinked");
  stop_contents(parent, __func__, content_bit(STREAM_CONTENT_AUDIO_DESC), 0);
  PERF_END();
}

}  // namespace vantrel
