// SPDX-License-Identifier: LGPL-2.1-or-later
#include "demux/pes_filter.h"

#include <fcntl.h>
#include <qel/device.h>

#include <cerrno>

#include "demux/node_names.h"
#include "demux/pes_type.h"
#include "instance/log.h"

namespace vantrel {
namespace {

constexpr unsigned long kPesBufferSize = 131072;

/// What an application that ran before the pipeline may hand over, by content.
struct HandOver {
  GstTvTsDemuxStreamContent content;
  Shared<gint> VantrelState::*fd;
  Shared<gboolean> VantrelState::*programmed;
};

constexpr HandOver kHandOvers[] = {
    {STREAM_CONTENT_VIDEO, &VantrelState::dmx_video_fd, &VantrelState::fastboot_video_flag},
    {STREAM_CONTENT_AUDIO, &VantrelState::dmx_audio_fd, &VantrelState::fastboot_audio_flag},
    {STREAM_CONTENT_PCR, &VantrelState::dmx_pcr_fd, &VantrelState::fastboot_pcr_flag},
};

const HandOver* hand_over_of(guint content) {
  for (const HandOver& row : kHandOvers)
    if (row.content == content) return &row;
  return nullptr;
}

int open_flags(guint dmx_type) {
  return dmx_type <= DMX_TYPE_ATV_RECORD ? O_RDONLY | O_NONBLOCK : O_WRONLY;
}

gboolean open_failed(const char* node) {
  LOG_ERROR_AS("gst_tv_ts_demux_open_demux", "demux device %s open failed", node);
  return FALSE;
}

/// Takes over a node that was opened before the element existed, once.
void adopt_node(GstVantrel* self, GstTvTsDemuxStream* stream, const HandOver& row) {
  if ((self->*row.fd).load() <= 0) return;
  if (stream->fd > 0) gst_tv_ts_demux_close_demux(stream);
  stream->fd = (self->*row.fd).exchange(0);
}

/// Skips the first programming of a node that was handed over running.
bool skip_for_fastboot(GstVantrel* self, GstTvTsDemuxStream* stream) {
  constexpr const char* kName = "gst_tv_ts_demux_program_demux";
  const HandOver* row = hand_over_of(stream->content);
  if (row == nullptr || (self->*row->programmed).load() != TRUE) return false;
  if (stream->content == STREAM_CONTENT_AUDIO) {
    LOG_INFO_AS(kName, "fastboot_audio_flag is TRUE pid[0x%x]. Skip", stream->pid);
    if (stream->pid == kInvalidPid) return true;
  } else if (stream->content == STREAM_CONTENT_VIDEO) {
    LOG_INFO_AS(kName, "fastboot_video_flag is TRUE. Skip");
  } else {
    LOG_INFO_AS(kName, "fastboot_pcr_flag is TRUE. Skip");
  }
  self->*row->programmed = FALSE;
  stream->running = TRUE;
  return true;
}

void gst_tv_ts_demux_set_bypass(GstVantrel* self, const GstTvTsDemuxStream* stream) {
  PERF_BEGIN();
  gint source = self->dmx_source_input;
  qel_device_ioctl(stream->fd, KWRX_DMX_SET_SOURCE, &source);
  LOG_DEBUG("gst_tv_ts_demux_set_bypass KWRX_DMX_SET_SOURCE source_input: %d!!!\n\n", source);
  PERF_END();
}

/// Live viewing and recordings of digital television come from the front end,
/// everything else from the DVR input.
dmx_input input_of(guint dmx_type) {
  return dmx_type == DMX_TYPE_LIVE || dmx_type == DMX_TYPE_DTV_RECORD ? DMX_IN_FRONTEND
                                                                      : DMX_IN_DVR;
}

dmx_output output_of(guint dmx_type, guint content) {
  if (is_record_mode(dmx_type)) return DMX_OUT_TS_TAP;
  return contains(kTextContents, content) ? DMX_OUT_TAP : DMX_OUT_DECODER;
}

void send_pes_filter(const GstTvTsDemuxStream* stream, dmx_pes_filter_params* params) {
  constexpr const char* kName = "gst_tv_ts_demux_program_demux";
  const int type = static_cast<int>(params->pes_type);
  if (qel_device_ioctl(stream->fd, KWRX_DMX_SET_BUFFER_SIZE, kPesBufferSize) < 0) {
    const int error = errno;
    LOG_DEBUG_AS(kName, "error setting PES filter buffer size errno:%d", error);
  }
  if (qel_device_ioctl(stream->fd, KWRX_DMX_SET_PES_FILTER, params) < 0) {
    const int error = errno;
    LOG_ERROR_AS(kName,
                 "gst_tv_ts_demux_program_demux fd: %d, type: %d, KWRX_DMX_SET_PES_FILTER FAIL "
                 "err: %d !!!!!",
                 stream->fd, type, error);
  }
  LOG_SYSTEM_INFO_AS(kName, "DMX_SET_PES_FILTER pesfilter.pid : %d, demux fd: %d, type: %d",
                     static_cast<int>(params->pid), stream->fd, type);
}

}  // namespace

gboolean gst_tv_ts_demux_open_demux(GstVantrel* self, GstTvTsDemuxStream* stream) {
  PERF_BEGIN();
  if (stream == nullptr) return FALSE;
  const char* node = demux_node_name(self->demux_id);
  if (const HandOver* row = hand_over_of(stream->content)) {
    adopt_node(self, stream, *row);
    if (stream->fd > 0) {
      LOG_DEBUG("demux device have been opened already from fastboot %d\n", stream->fd);
      return TRUE;
    }
    if (stream->fd != -1) return open_failed(node);
  } else if (stream->fd > 0) {
    gst_tv_ts_demux_close_demux(stream);  // opened before start-up: not to be lost
  }
  stream->fd = qel_device_open(node, open_flags(self->dmx_type));
  if (stream->fd <= 0) return open_failed(node);
  LOG_DEBUG("demux device %s opened", node);
  PERF_END();
  return TRUE;
}

gboolean gst_tv_ts_demux_program_demux(GstVantrel* self, GstTvTsDemuxStream* stream) {
  PERF_BEGIN();
  if (stream == nullptr) return FALSE;
  if (skip_for_fastboot(self, stream)) return TRUE;
  dmx_pes_filter_params params{};
  qel_device_ioctl(stream->fd, KWRX_DMX_STOP, 0UL);
  if (stream->pid == kInvalidPid) {
    LOG_DEBUG("invalid stream->pid setting!");
    return TRUE;
  }
  gst_tv_ts_demux_set_bypass(self, stream);
  const guint dmx_type = self->dmx_type;
  params.pid = static_cast<guint16>(stream->pid);
  params.input = input_of(dmx_type);
  params.output = output_of(dmx_type, stream->content);
  params.flags = DMX_IMMEDIATE_START;
  if (const auto pes_type = choose_pes_type(self, stream, dmx_type)) {
    params.pes_type = *pes_type;
    send_pes_filter(stream, &params);
    stream->running = TRUE;
  }
  PERF_END();
  return TRUE;
}

gboolean gst_tv_ts_demux_start_demux(GstTvTsDemuxStream* stream) {
  PERF_BEGIN();
  if (stream->fd != -1 && !stream->running) {
    if (qel_device_ioctl(stream->fd, KWRX_DMX_START, 0UL) != 0) {
      LOG_INFO("demux device ioctl KWRX_DMX_START failed\n");
      return FALSE;
    }
    LOG_INFO("demux device  start fd = %d ", stream->fd);
  }
  stream->running = TRUE;
  PERF_END();
  return TRUE;
}

gboolean gst_tv_ts_demux_stop_demux(GstTvTsDemuxStream* stream) {
  PERF_BEGIN();
  if (stream->fd != -1 && stream->running) {
    if (qel_device_ioctl(stream->fd, KWRX_DMX_STOP, 0UL) != 0) {
      LOG_INFO("demux device ioctl KWRX_DMX_STOP failed\n");
      return FALSE;
    }
    LOG_INFO("demux device  stop stream->fd: %d", stream->fd);
  }
  stream->running = FALSE;
  PERF_END();
  return TRUE;
}

gboolean gst_tv_ts_demux_close_demux(GstTvTsDemuxStream* stream) {
  PERF_BEGIN();
  if (stream->fd != -1) {
    qel_device_close(demux_node_name(stream->demux_id), stream->fd);
    stream->fd = -1;
    LOG_INFO("demux device  closed");
  }
  PERF_END();
  return TRUE;
}

}  // namespace vantrel
