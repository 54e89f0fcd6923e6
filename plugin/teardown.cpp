// SPDX-License-Identifier: LGPL-2.1-or-later
#include <qel/device.h>
#include <qel/marker.h>

#include "demux/change.h"
#include "demux/node_names.h"
#include "instance/instance.h"
#include "instance/log.h"
#include "plugin/lifecycle.h"
#include "readers/pes_reader.h"
#include "readers/section_reader.h"
#include "readers/temi_reader.h"

namespace vantrel {
namespace {

void free_poll_set(GstVantrel* self) {
  // Who still interrupts a wait holds the set until it has ended.
  std::shared_ptr<PollSet> set;
  std::lock_guard lock(self->section_lock);
  std::lock_guard poll_lock(self->poll_lock);
  set.swap(self->usrdata_poll);
}

void close_temi(GstVantrel* self) {
  std::lock_guard start(self->temi_lock);
  if (self->temi_thread.load() != nullptr) return;  // started again since the join
  std::lock_guard lock(self->stream_lock);
  const gint fd = self->temi_fd;
  if (fd < 0) return;
  if (self->temi_enable == TRUE && qel_device_ioctl(fd, KWRX_DMX_STOP, 0UL) != 0)
    LOG_ERROR_AS("gst_vantrel_destory", "TEMI device ioctl DMX_STOP fail");
  qel_device_close(temi_node_name(self->demux_id), fd);
  self->temi_fd = -1;
}

void clear_isdb_slots(GstVantrel* self) {
  {
    std::lock_guard lock(self->stream_lock);
    self->isdb_pids.fill(0);
  }
  self->isdb_index = 0;
}

}  // namespace
}  // namespace vantrel

gboolean gst_vantrel_pes_destory(GstTvBaseFilter* filter) {
  using namespace vantrel;
  auto* self = static_cast<GstVantrel*>(filter);
  PERF_BEGIN();
  qel_marker("[BEGIN]PER_gstvantrel::destory(thread_join_2)");
  stop_reader(self, kPesReader);
  {
    std::lock_guard lock(self->demux_lock);
    qel_marker("[END]PER_gstvantrel::destory(thread_join_2)");
    if (self->devices_created) clear_streams(self);
  }
  clear_isdb_slots(self);
  self->paused = FALSE;
  self->devices_created = FALSE;
  PERF_END();
  return TRUE;
}

gboolean gst_vantrel_destory(GstTvBaseFilter* filter) {
  using namespace vantrel;
  auto* self = static_cast<GstVantrel*>(filter);
  LOG_SYSTEM_INFO("called");
  qel_marker("[BEGIN]PER_gstvantrel::destory");
  self->audio_dmx_enabled = FALSE;
  self->initiated = 0;
  qel_marker("[BEGIN]PER_gstvantrel::destory(thread_join_1)");
  stop_reader(self, kSectionReader);
  free_poll_set(self);
  qel_marker("[END]PER_gstvantrel::destory(thread_join_1)");
  if (!gst_vantrel_pes_destory(filter)) LOG_ERROR("gst_vantrel_pes_destory fail");
  stop_reader(self, kTemiReader);
  close_temi(self);
  qel_marker("[END]PER_gstvantrel::destory");
  return TRUE;
}
