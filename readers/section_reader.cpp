// SPDX-License-Identifier: LGPL-2.1-or-later
#include "readers/section_reader.h"

#include <qel/device.h>

#include <cerrno>

#include "instance/log.h"
#include "readers/timed_wait.h"
#include "sections/device.h"
#include "sections/registry.h"
#include "sections/sec_filter.h"

namespace vantrel {
namespace {

constexpr const char* kSectionPass = "vantrel_read_section_filters";
constexpr const char* kDrain = "vantrel_read_sections";

constexpr GstClockTime kPollWait = 50 * GST_MSECOND;
constexpr int kSectionSleepMs = 1;
/// Shortest read that is taken for a section.
constexpr ssize_t kMinSection = 4;

/// A filter is being removed, or the element torn down: the pass is to end.
bool interrupted(const GstVantrel* self) {
  return self->sec_filter_wait_flag != 0 || !self->start_pesdata_flag;
}

bool pass_interrupted(const GstVantrel* self) {
  if (!interrupted(self)) return false;
  LOG_INFO_AS(kSectionPass,
              "[%p][%d]section reading interrupt sec_filter_wait_flag: %d, start_pesdata_flag: %d",
              static_cast<const void*>(self), self->dmx_type.load(),
              self->sec_filter_wait_flag != 0, self->start_pesdata_flag.load());
  return true;
}

bool drain_interrupted(const GstVantrel* self) {
  if (!interrupted(self)) return false;
  LOG_INFO_AS(
      kDrain, "[%d]section reading interrupt sec_filter_wait_flag: %d, start_pesdata_flag: %d",
      self->dmx_type.load(), self->sec_filter_wait_flag != 0, self->start_pesdata_flag.load());
  return true;
}

bool delivers_sections(const GstVantrel* self) {
  return !self->paused || self->dmx_type == DMX_TYPE_DTV_RECORD;
}

void log_short_read(const GstVantrel* self, ssize_t count) {
  if (count < 0) {
    if (errno != EAGAIN)
      LOG_INFO_AS(kDrain, "[GST_VANTREL][%d]vantrel_read_sections: read error!",
                  self->dmx_type.load());
    return;
  }
  LOG_DEBUG_AS(kDrain, "[GST_VANTREL]vantrel_read_sections count: %d!!!!", static_cast<int>(count));
}

/// One read; 0 ends the drain.
guint read_section(GstVantrel* self, SectionFilter* filter) {
  LOG_DEBUG_AS(kDrain, "s: %p, buf: %p", static_cast<void*>(filter),
               static_cast<void*>(filter->buf));
  const ssize_t count = qel_device_read(filter->fd, filter->buf, sizeof filter->buf);
  if (count < kMinSection) {
    log_short_read(self, count);
    return 0;
  }
  LOG_DEBUG_AS(kDrain,
               "[GST_VANTREL][%d]section read count: %d, s->pid %d, s->table_id %d, real tid: %d, "
               "ver_chk: %d, crc_chk: %d!!!",
               self->dmx_type.load(), static_cast<int>(count), filter->pid, filter->table_id,
               filter->buf[0], filter->ver_chk, filter->crc_chk);
  if (filter->filter_len == 0 && filter->table_id != filter->buf[0])
    LOG_ERROR_AS(kDrain,
                 "Error. Table ID is not matched. s->pid %d, s->table_id %d, real tid: %d, s:%p,  "
                 "s->fd: %d, buf:%p",
                 filter->pid, filter->table_id, filter->buf[0], static_cast<void*>(filter),
                 filter->fd, static_cast<void*>(filter->buf));
  return static_cast<guint>(count);
}

void log_emission(const GstVantrel* self, SectionFilter* filter, guint size) {
  LOG_DEBUG_AS(kDrain, "[GST_VANTREL]g_signal_emit: %d, pid %d, table_id %d, real tid: %d!!!", size,
               filter->pid, filter->table_id, filter->buf[0]);
  if (filter->pid != 0 || filter->pat_emitted) return;
  LOG_SYSTEM_INFO_AS(kDrain, "[GST_VANTREL][%p][%d] PAT emit: len: %d!!!",
                     static_cast<const void*>(self), self->dmx_type.load(), size);
  filter->pat_emitted = TRUE;
}

/// Emits with section_lock free, so that handlers may add and remove filters.
/// `emitting` keeps the record and its buffer; one removed by its own handler
/// is freed here. False when the running list has changed: then neither the
/// record nor the poll table may be used any further.
bool emit(GstVantrel* self, SectionFilter* filter, guint size,
          std::unique_lock<std::mutex>& guard) {
  const guint64 generation = self->section_generation;
  self->section_emitting = true;
  filter->emitting = true;
  emitted_section_filter = filter;
  guard.unlock();
  g_signal_emit(self, gst_vantrel_signals[SIGNAL_SECTION_UPLOAD], 0, filter->pid, filter->table_id,
                filter->buf, size, filter);
  log_emission(self, filter, size);
  guard.lock();
  emitted_section_filter = nullptr;
  filter->emitting = false;
  self->section_emitting = false;
  if (filter->orphaned) release_section_filter(filter);
  self->emission_done.notify_all();
  return generation == self->section_generation;
}

/// Reads the filter's node until it is empty. False ends the pass.
bool vantrel_read_sections(GstVantrel* self, SectionFilter* filter,
                           std::unique_lock<std::mutex>& guard) {
  while (const guint size = read_section(self, filter)) {
    const bool delivered = delivers_sections(self) && section_check(filter) > 0;
    const bool unchanged = !delivered || emit(self, filter, size, guard);
    if (drain_interrupted(self)) return unchanged;
    // Teardown does not wait for a node that never runs dry.
    if (!unchanged || !self->start_userdata_flag) return false;
  }
  return true;
}

/// Waits for data; false when the wait was interrupted.
bool wait_for_data(GstVantrel* self) {
  LOG_DEBUG_AS(kSectionPass, "poll begin!!");
  const gint ready = gst_poll_wait(self->usrdata_poll->get(), kPollWait);
  if (ready == -1) {
    LOG_DEBUG_AS(kSectionPass, "errno: %d", errno);
    return false;
  }
  if (ready == 0) LOG_DEBUG_AS(kSectionPass, "poll timeout");
  LOG_DEBUG_AS(kSectionPass, "poll end!!");
  return true;
}

/// Every filter is drained, whether or not the poll named it: reading an empty
/// node is cheaper than asking.
void drain_filters(GstVantrel* self, gint count, std::unique_lock<std::mutex>& guard) {
  for (gint i = 0; i < count; i++) {
    SectionFilter* filter = self->poll_section_bufs[i];
    if (filter == nullptr) {
      LOG_DEBUG_AS(kSectionPass, "[GST_VANTREL]poll_section_bufs[%d] is NULL", i);
      return;
    }
    if (!vantrel_read_sections(self, filter, guard)) return;
    if (i + 1 == count)
      LOG_DEBUG_AS(kSectionPass, "poll sec_cnt:%d, num: %d", count, count);
    else if (pass_interrupted(self))
      return;
  }
}

void vantrel_read_section_filters(GstVantrel* self) {
  std::unique_lock guard(self->section_lock);
  const gint count = self->n_section_running;
  if (count == 0 || self->usrdata_poll == nullptr || pass_interrupted(self)) return;
  if (!wait_for_data(self) || pass_interrupted(self)) return;
  drain_filters(self, count, guard);
}

gpointer vantrel_userdata_thread(gpointer data) {
  auto* self = static_cast<GstVantrel*>(data);
  enter_reader(self, kSectionReader);
  do {
    if (self->initiated == 1) vantrel_read_section_filters(self);
  } while (!sleep_between_passes(self->userdata_sem, kSectionSleepMs) && self->start_userdata_flag);
  vantrel_clear_section_filter(self);
  return nullptr;
}

}  // namespace

const Reader kSectionReader = {"vantrel-userdata",
                               "vantrel-userdat",
                               &VantrelState::userdata_thread,
                               &VantrelState::userdata_sem,
                               &VantrelState::start_userdata_flag,
                               vantrel_userdata_thread,
                               "gst_vantrel_pes_initiate",
                               "demuxer_userdata_thread create fail!\n"};

}  // namespace vantrel
