// SPDX-License-Identifier: LGPL-2.1-or-later
#include <array>
#include <cstdlib>
#include <cstring>

#include "config/handlers.h"
#include "demux/change.h"
#include "instance/instance.h"
#include "instance/log.h"

namespace vantrel {
namespace {

constexpr const char* kListName = "set_prop_demux_multi_pids";

/// type ":" pid ":" codec
constexpr guint kFields = 3;

struct TypeWord {
  const char* word;
  GstTvTsDemuxStreamContent content;
};

constexpr auto kTypeWords = std::to_array<TypeWord>({
    {"video", STREAM_CONTENT_VIDEO},
    {"audio", STREAM_CONTENT_AUDIO},
    {"video-sub", STREAM_CONTENT_VIDEO_SUB},
    {"subtitle", STREAM_CONTENT_SUBTITLE},
    {"pcr", STREAM_CONTENT_PCR},
    {"other", STREAM_CONTENT_OTHER},
});

GstTvTsDemuxStreamContent content_of(const char* word) {
  for (const TypeWord& row : kTypeWords)
    if (std::strcmp(row.word, word) == 0) return row.content;
  LOG_WARNING_AS(kListName, "param[%s] cannot be parsed.\n", word);
  return STREAM_CONTENT_OTHER;
}

/// The number that the field begins with; 0 where it begins with none.
guint number_of(const char* field) { return static_cast<guint>(std::strtol(field, nullptr, 10)); }

void set_entry(GstVantrel* self, const char* entry) {
  g_auto(GStrv) fields = g_strsplit(entry, ":", -1);
  if (g_strv_length(fields) < kFields) {
    LOG_WARNING_AS(kListName, "param[%s] cannot be parsed.\n", entry);
    return;
  }
  const GstTvTsDemuxStreamContent content = content_of(fields[0]);
  if (content == STREAM_CONTENT_VIDEO_SUB) self->video_codec_sub = 1;
  const guint pid = number_of(fields[1]);
  if (pid == 0) return;
  LOG_DEBUG_AS(kListName, "pid %d\n", pid);
  gst_tv_ts_demux_change_stream(self, content, pid, number_of(fields[2]));
}

}  // namespace

void set_prop_demux_multi_pids(GstVantrel* self, guint, const GValue* value) {
  const gchar* list = g_value_get_string(value);
  LOG_DEBUG("set PROP_ES_PIDS %s", list);
  g_auto(GStrv) entries = g_strsplit(list != nullptr ? list : "", "/", -1);
  LOG_DEBUG("num streams %d", g_strv_length(entries));
  for (gchar** entry = entries; *entry != nullptr; entry++) set_entry(self, *entry);
}

}  // namespace vantrel
