// SPDX-License-Identifier: LGPL-2.1-or-later
#include <algorithm>

#include "config/handlers.h"
#include "config/log_pid.h"
#include "demux/change.h"
#include "demux/stream_table.h"
#include "instance/instance.h"
#include "instance/log.h"

namespace vantrel {
namespace {

constexpr guint kDvbSubpicture = 29;
/// Value that removes streams.
constexpr gint kRemove = -1;

void remove_all_subtitles(GstVantrel* self) {
  std::lock_guard lock(self->demux_lock);
  bool removed = false;
  while (const StreamPtr stream = first_stream(self, STREAM_CONTENT_SUBTITLE)) {
    remove_stream(self, stream);
    removed = true;
  }
  {
    std::lock_guard table(self->stream_lock);
    self->isdb_pids.fill(0);
  }
  self->isdb_index = 0;
  if (!removed)
    LOG_INFO_AS("set_prop_demux_sub_isdb_pid", "STREAM_CONTENT_SUBTITLE pid can not be set as 0");
}

/// A caption slot for the PID: 1 to 3, or 0 when all hold others.
struct CaptionSlot {
  guint number;
  bool is_new;
};

CaptionSlot take_caption_slot(GstVantrel* self, guint pid) {
  std::lock_guard lock(self->stream_lock);
  auto& pids = self->isdb_pids;
  const auto held = std::find(pids.begin(), pids.end(), pid);
  const auto slot = held != pids.end() ? held : std::find(pids.begin(), pids.end(), 0U);
  if (slot == pids.end()) return {0, false};
  *slot = pid;
  return {static_cast<guint>(slot - pids.begin()) + 1, held == pids.end()};
}

void set_caption(GstVantrel* self, guint pid) {
  const CaptionSlot slot = take_caption_slot(self, pid);
  if (slot.number != 0) self->isdb_index = slot.number;
  if (slot.is_new)
    gst_tv_ts_demux_change_stream(self, STREAM_CONTENT_SUBTITLE, pid, kDvbSubpicture);
  else
    LOG_INFO_AS("set_prop_demux_sub_isdb_pid", "only three ISDB pid can be set at the same time!");
}

}  // namespace

void set_prop_demux_sub_isdb_pid(GstVantrel* self, guint id, const GValue* value) {
  const gint pid = g_value_get_int(value);
  // The slot chosen here is the one that the stream is programmed for.
  std::lock_guard operation(self->demux_lock);
  self->isdb_index = 0;
  if (pid == 0) {
    LOG_DEBUG("VANTREL_ISDBPID/VANTREL_ISDBPID pid can not be set as 0");
    return;
  }
  log_pid(__func__, id, static_cast<guint>(pid));
  if (pid == kRemove)
    remove_all_subtitles(self);
  else if (id == PROP_SUB_PID)
    gst_tv_ts_demux_change_stream(self, STREAM_CONTENT_SUBTITLE, static_cast<guint>(pid),
                                  kDvbSubpicture);
  else
    set_caption(self, static_cast<guint>(pid));
}

void set_prop_demux_ttx_super_pid(GstVantrel* self, guint id, const GValue* value) {
  const gint pid = g_value_get_int(value);
  log_pid(__func__, id, static_cast<guint>(pid));
  if (pid != kRemove) {
    gst_tv_ts_demux_change_stream(self, STREAM_CONTENT_TELETEXT, static_cast<guint>(pid),
                                  kTeletext);
    return;
  }
  bool removed = false;
  {
    std::lock_guard lock(self->demux_lock);
    if (const StreamPtr stream = first_stream(self, STREAM_CONTENT_TELETEXT)) {
      remove_stream(self, stream);
      removed = true;
    }
  }
  if (!removed) LOG_DEBUG("STREAM_CONTENT_TELETEXT pid can not be set as 0");
}

}  // namespace vantrel
