// SPDX-License-Identifier: LGPL-2.1-or-later
#include "sections/registry.h"

#include <qel/marker.h>
#include <sys/mman.h>

#include <new>

#include "demux/node_names.h"
#include "instance/log.h"
#include "sections/device.h"

namespace vantrel {
namespace {

constexpr const char* kFree = "gst_vantrel_free_section_filter";

/// Keeps the section reader's poll wait from holding section_lock while a
/// handler needs it; for a removal, ends its pass at the next look as well.
class Interruption {
 public:
  Interruption(GstVantrel* self, const char* function, gint removals)
      : self_(self), function_(function), removals_(removals) {
    {
      std::lock_guard lock(self->poll_lock);
      set_ = self->usrdata_poll;
    }
    if (set_ != nullptr) {
      LOG_DEBUG_AS(function_, "gst_poll_set_flushing (usrdata_poll) : TRUE");
      set_->begin_flushing();
    }
    self->sec_filter_wait_flag += removals_;
  }
  ~Interruption() {
    if (set_ != nullptr) {
      LOG_DEBUG_AS(function_, "gst_poll_set_flushing (usrdata_poll) : FLASE");
      set_->end_flushing();
    }
    self_->sec_filter_wait_flag -= removals_;
  }
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;

 private:
  GstVantrel* self_;
  const char* function_;
  const gint removals_;
  std::shared_ptr<PollSet> set_;
};

/// A record on pages of its own, which cost nothing until they are written.
SectionFilter* allocate_record() {
  void* pages = mmap(nullptr, sizeof(SectionFilter), PROT_READ | PROT_WRITE,
                     MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return pages != MAP_FAILED ? new (pages) SectionFilter : nullptr;
}

void set_parameters(const GstVantrel* self, SectionFilter* filter) {
  filter->device = demux_node_name(self->demux_id);
  filter->pid = self->section_pid;
  filter->table_id = self->section_table_id;
  filter->table_id_ex = self->section_table_id_ex;
  filter->mask = self->section_mask;
  filter->filter = self->section_filter;
  filter->mode = self->section_mode;
  filter->filter_len = self->filter_index;
  filter->ver_chk = self->section_check_version;
  filter->crc_chk = self->section_check_crc;
}

/// Starts the filter or queues it; NULL, and freed, where neither is possible.
SectionFilter* start_or_queue(GstVantrel* self, SectionFilter* filter) {
  const int result = vantrel_start_section_filter(self, filter);
  if (result == kSectionStarted) return filter;
  LOG_DEBUG_AS("vantrel_add_section_filter",
               "[GST_VANTREL][%p][%d] vantrel_add_section_filter waiting!!! pid %d, tid %d, err %d",
               static_cast<void*>(self), self->dmx_type.load(), filter->pid, filter->table_id,
               result);
  if (result == kSectionNoSlot) {
    filter->insert_after(*self->waiting_section_filters.prev);
    return filter;
  }
  LOG_DEBUG_AS("gst_vantrel_create_section_filter", "free ptr = %p", static_cast<void*>(filter));
  release_section_filter(filter);
  return nullptr;
}

/// The record on `list` that the handle names; the handle is only compared.
SectionFilter* find(SectionLink& list, gconstpointer handle) {
  for (SectionLink* link = list.next; link != &list; link = link->next)
    if (static_cast<SectionFilter*>(link) == handle) return static_cast<SectionFilter*>(link);
  return nullptr;
}

/// Frees a record that is off its list, once no emission of it runs. From its
/// own handler that would be never, nor from inside an operation on streams that
/// the handler may wait for: then the section reader frees it.
void free_after_emission(GstVantrel* self, SectionFilter* filter,
                         std::unique_lock<std::mutex>& filter_guard,
                         std::unique_lock<std::mutex>& section_guard) {
  if (filter->emitting) {
    filter->orphaned = emitted_section_filter == filter || self->demux_lock.held_here();
    if (filter->orphaned) return;
    filter_guard.unlock();
    self->emission_done.wait(section_guard, [&] { return !filter->emitting; });
  }
  release_section_filter(filter);
}

void free_by_handle(GstVantrel* self, gpointer handle, std::unique_lock<std::mutex>& filter_guard) {
  std::unique_lock section_guard(self->section_lock);
  if (SectionFilter* running = find(self->running_section_filters, handle)) {
    vantrel_remove_section_filter(self, running);
    LOG_DEBUG_AS(kFree, "free ptr = %p", handle);
    free_after_emission(self, running, filter_guard, section_guard);
    LOG_DEBUG_AS(kFree, "[GST_VANTREL]gst_vantrel_free_section_filter : remove from running list");
  } else if (SectionFilter* waiting = find(self->waiting_section_filters, handle)) {
    waiting->unlink();
    LOG_DEBUG_AS(kFree, "free ptr = %p", handle);
    release_section_filter(waiting);
    LOG_DEBUG_AS(kFree, "[GST_VANTREL]gst_vantrel_free_section_filter : remove from waiting list");
  } else {
    LOG_DEBUG_AS(
        kFree, "[GST_VANTREL]gst_vantrel_free_section_filter : not found, may be stoped already!");
  }
}

void store_arguments(GstVantrel* self, guint pid, guint table_id, guint table_id_ex, gpointer mask,
                     gpointer filter, guint filter_len, gboolean check_version, gboolean check_crc,
                     gpointer mode) {
  self->section_table_id_ex = static_cast<guint16>(table_id_ex);
  self->section_table_id = static_cast<guint16>(table_id);
  self->section_pid = static_cast<guint16>(pid);
  self->filter_index = filter_len;
  self->mask_index = filter_len;
  self->section_mask = static_cast<const guint8*>(mask);
  self->section_check_crc = check_crc;
  self->section_check_version = check_version;
  self->section_filter = static_cast<const guint8*>(filter);
  self->section_mode = static_cast<const guint8*>(mode);
}

}  // namespace

gpointer gst_vantrel_add_filter(GstVantrel* self, guint pid, guint table_id, guint table_id_ex,
                                gpointer mask, gpointer filter, guint filter_len,
                                gboolean check_version, gboolean check_crc, gpointer mode) {
  const Interruption interruption(self, __func__, 0);
  std::lock_guard lock(self->filter_lock);
  store_arguments(self, pid, table_id, table_id_ex, mask, filter, filter_len, check_version,
                  check_crc, mode);
  gpointer handle = gst_vantrel_create_section_filter(self);
  self->filter_index = 0;
  self->mask_index = 0;
  LOG_INFO("add current filter s_handler: %p, pid:%d, tid:%d, ver_check:%d, crc_check: %d", handle,
           self->section_pid, self->section_table_id, check_version, check_crc);
  return handle;
}

void gst_vantrel_remove_filter(GstVantrel* self, gpointer handle) {
  qel_marker("[BEGIN]PER_gstvantrel::gst_vantrel_remove_filter");
  {
    const Interruption interruption(self, __func__, 1);
    std::unique_lock filter_guard(self->filter_lock);
    self->section_handler = handle;
    LOG_DEBUG("remove current filter section_handler: %p", handle);
    gst_vantrel_free_section_filter(self, filter_guard);
  }
  qel_marker("[END]PER_gstvantrel::gst_vantrel_remove_filter");
}

SectionFilter* gst_vantrel_create_section_filter(GstVantrel* self) {
  PERF_BEGIN();
  SectionFilter* filter = allocate_record();
  if (filter == nullptr) return nullptr;
  LOG_DEBUG("malloc ptr = %p", static_cast<void*>(filter));
  {
    std::lock_guard lock(self->section_lock);
    set_parameters(self, filter);
    filter = start_or_queue(self, filter);
  }
  PERF_END();
  return filter;
}

void gst_vantrel_free_section_filter(GstVantrel* self, std::unique_lock<std::mutex>& filter_guard) {
  PERF_BEGIN();
  // Cleared before the lock may be let go, so that another removal keeps its own.
  gpointer handle = std::exchange(self->section_handler, nullptr);
  if (handle == nullptr) {
    LOG_DEBUG("[GST_VANTREL]gst_vantrel_free_section_filter demuxer->section_handler : null!!!!!");
    return;
  }
  LOG_DEBUG("s: %p, buf: %p", handle,
            static_cast<void*>(static_cast<guint8*>(handle) + kSectionBufferOffset));
  free_by_handle(self, handle, filter_guard);
  PERF_END();
}

void release_section_filter(SectionFilter* filter) {
  filter->~SectionFilter();
  munmap(filter, sizeof(SectionFilter));
}

void vantrel_clear_section_filter(GstVantrel* self) {
  std::lock_guard lock(self->section_lock);
  while (!self->running_section_filters.empty()) {
    auto* filter = static_cast<SectionFilter*>(self->running_section_filters.next);
    vantrel_remove_section_filter(self, filter);
    LOG_ERROR("[GST_VANTREL][%p][%d] clear running filter ptr: %p, pid %d, tid %d",
              static_cast<void*>(self), self->dmx_type.load(), static_cast<void*>(filter),
              filter->pid, filter->table_id);
    release_section_filter(filter);
  }
  while (!self->waiting_section_filters.empty()) {
    auto* filter = static_cast<SectionFilter*>(self->waiting_section_filters.next);
    LOG_ERROR("[GST_VANTREL][%p][%d] clear waiting filter ptr: %p, pid %d, tid %d",
              static_cast<void*>(self), self->dmx_type.load(), static_cast<void*>(filter),
              filter->pid, filter->table_id);
    filter->unlink();
    release_section_filter(filter);
  }
}

}  // namespace vantrel
