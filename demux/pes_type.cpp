// SPDX-License-Identifier: LGPL-2.1-or-later
#include "demux/pes_type.h"

#include <qel/device.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "instance/log.h"

namespace vantrel {
namespace {

constexpr const char* kPesTypeName = "gst_tv_ts_demux_get_pestype";

constexpr auto kAudioTypes =
    std::to_array<dmx_ts_pes>({DMX_PES_AUDIO0, DMX_PES_AUDIO1, DMX_PES_AUDIO2, DMX_PES_AUDIO3});
constexpr auto kSubtitleTypes = std::to_array<dmx_ts_pes>(
    {DMX_PES_SUBTITLE0, DMX_PES_SUBTITLE1, DMX_PES_SUBTITLE2, DMX_PES_SUBTITLE3});

/// PES types by content, OTHER for every content beyond; the play-mode rows of
/// audio and subtitle are chosen by index, those of video by the driver.
constexpr auto kPlayTypes =
    std::to_array<dmx_ts_pes>({DMX_PES_OTHER, DMX_PES_OTHER, DMX_PES_OTHER, DMX_PES_TELETEXT0,
                               DMX_PES_PCR0, DMX_PES_OTHER, DMX_PES_AUDIO1});
constexpr auto kRecordTypes = std::to_array<dmx_ts_pes>(
    {DMX_PES_VIDEO0, DMX_PES_AUDIO0, DMX_PES_OTHER, DMX_PES_OTHER, DMX_PES_PCR0});

template <std::size_t N>
dmx_ts_pes row_or(const std::array<dmx_ts_pes, N>& types, guint index, dmx_ts_pes otherwise) {
  return index < N ? types[index] : otherwise;
}

dmx_ts_pes play_type(const GstVantrel* self, guint content) {
  if (content == STREAM_CONTENT_AUDIO)
    return row_or(kAudioTypes, self->audio_dec_index, kAudioTypes[0]);
  if (content == STREAM_CONTENT_SUBTITLE)
    return row_or(kSubtitleTypes, self->isdb_index, kSubtitleTypes[0]);
  return row_or(kPlayTypes, content, DMX_PES_OTHER);
}

/// The two contents whose decoder is named, and what stands for it when the
/// driver cannot tell.
struct VideoPath {
  GstTvTsDemuxStreamContent content;
  std::optional<std::string> VantrelState::*decoder;
  dmx_ts_pes fallback;
};

constexpr VideoPath kVideoPaths[] = {
    {STREAM_CONTENT_VIDEO, &VantrelState::videodec_device, DMX_PES_VIDEO0},
    {STREAM_CONTENT_VIDEO_SUB, &VantrelState::videodec_device_sub, DMX_PES_VIDEO1},
};

const VideoPath* video_path_of(guint content) {
  for (const VideoPath& row : kVideoPaths)
    if (row.content == content) return &row;
  return nullptr;
}

/// Fills in the decoder's path; false while there is none that fits.
bool fill_query(const std::optional<std::string>& decoder, dmx_pes_type_query* query) {
  if (!decoder) return false;
  const char* path = get_device_path(decoder->c_str());
  if (path == nullptr || std::strlen(path) >= sizeof query->device_path) return false;
  std::memcpy(query->device_path, path, std::strlen(path) + 1);
  return true;
}

void log_video(guint dmx_type, guint content, guint pes_type, const char* decoder) {
  if (content == STREAM_CONTENT_VIDEO)
    LOG_INFO_AS(kPesTypeName, "VIDEO : type[%d] content[%d] pestype[%d] device[%s]", dmx_type,
                content, pes_type, decoder);
  else
    LOG_INFO_AS(kPesTypeName, "SUB VIDEO : type[%d] content[%d] pestype[%d] device[%s]", dmx_type,
                content, pes_type, decoder);
}

std::optional<dmx_ts_pes> video_type(GstVantrel* self, const GstTvTsDemuxStream* stream,
                                     guint dmx_type, const VideoPath& row) {
  const std::optional<std::string>& decoder = self->*row.decoder;
  dmx_pes_type_query query{};
  if (!fill_query(decoder, &query)) {
    LOG_INFO_AS(kPesTypeName, "video dec device was not determined yet");
    return std::nullopt;
  }
  if (qel_device_ioctl(stream->fd, KWRX_DMX_GET_PESTYPE, &query) < 0) {
    const int error = errno;
    query.pes_type = row.fallback;
    LOG_ERROR_AS(kPesTypeName, "KWRX_DMX_GET_PESTYPE FAIL device[%s] err: %d, pestype[%d] is used",
                 decoder->c_str(), error, query.pes_type);
  }
  log_video(dmx_type, row.content, query.pes_type, decoder->c_str());
  return static_cast<dmx_ts_pes>(query.pes_type);
}

}  // namespace

std::optional<dmx_ts_pes> choose_pes_type(GstVantrel* self, const GstTvTsDemuxStream* stream,
                                          guint dmx_type) {
  constexpr const char* kProgram = "gst_tv_ts_demux_program_demux";
  const guint content = stream->content;
  if (is_record_mode(dmx_type)) {
    LOG_DEBUG_AS(kProgram, "[GST_VANTREL]Setting the PES filter in Recording mode");
    const dmx_ts_pes type = row_or(kRecordTypes, content, DMX_PES_OTHER);
    LOG_INFO_AS(kProgram, "Record : type[%d] content[%d] pestype[%d]", dmx_type, content, type);
    return type;
  }
  LOG_DEBUG_AS(kProgram, "[GST_VANTREL]Setting the PES filter in PLAY mode");
  if (const VideoPath* row = video_path_of(content))
    return video_type(self, stream, dmx_type, *row);
  const dmx_ts_pes type = play_type(self, content);
  LOG_INFO_AS(kPesTypeName, "OTHER : type[%d] content[%d] pestype[%d]", dmx_type, content, type);
  return type;
}

}  // namespace vantrel
