// SPDX-License-Identifier: LGPL-2.1-or-later
#include "sections/device.h"

#include <fcntl.h>
#include <qel/device.h>

#include <cerrno>

#include "demux/node_names.h"
#include "instance/log.h"

namespace vantrel {
namespace {

constexpr const char* kStart = "vantrel_start_section_filter";

/// Bytes of a pattern, section_length included.
constexpr guint kMaxPattern = 15;
/// Mask byte that compares all bits.
constexpr guint8 kAllBits = 0xFF;

void vantrel_section_set_bypass(GstVantrel* self, const SectionFilter* filter) {
  PERF_BEGIN();
  gint source = self->dmx_source_input;
  qel_device_ioctl(filter->fd, KWRX_DMX_SET_SOURCE, &source);
  LOG_DEBUG("vantrel_section_set_bypass KWRX_DMX_SET_SOURCE source_input: %d!!!\n\n", source);
  PERF_END();
}

void fill_plain(const GstVantrel* self, const SectionFilter* filter, dmx_filter* request) {
  if (filter->table_id <= 0xFF) {
    request->filter[0] = static_cast<guint8>(filter->table_id);
    request->mask[0] = kAllBits;
    LOG_INFO_AS(kStart,
                "[GST_VANTREL][%d] pid: %d, table_id: %d, mask: %d, ver_chk: %d, crc_chk: %d",
                self->dmx_type.load(), filter->pid, filter->table_id, kAllBits, filter->ver_chk,
                filter->crc_chk);
  }
  if (filter->table_id_ex >= 1 && filter->table_id_ex <= 0xFFFF) {
    request->filter[1] = static_cast<guint8>(filter->table_id_ex >> 8);
    request->filter[2] = static_cast<guint8>(filter->table_id_ex);
    request->mask[1] = request->mask[2] = kAllBits;
  }
}

/// Copies the patterns without the two section_length bytes, which the driver
/// has no place for. False for patterns that are missing or too long.
bool fill_pattern(const GstVantrel* self, SectionFilter* filter, dmx_filter* request) {
  if (filter->filter_len > kMaxPattern) {
    LOG_INFO_AS(kStart, "[GST_VANTREL]too many filters in one setting!!");
    return false;
  }
  if (filter->filter == nullptr || filter->mask == nullptr) return false;
  filter->table_id = filter->filter[0];
  for (guint i = 0, j = 0; i < filter->filter_len; i++) {
    if (i == 1 || i == 2) continue;
    request->filter[j] = filter->filter[i];
    request->mask[j] = filter->mask[i];
    request->mode[j] = filter->mode != nullptr ? filter->mode[i] : 0;
    LOG_INFO_AS(kStart,
                "[GST_VANTREL][%d] pid: %d, table_id: %d, mask: %d, ver_chk: %d, crc_chk: %d, "
                "mode: %d",
                self->dmx_type.load(), filter->pid, request->filter[j], request->mask[j],
                filter->ver_chk, filter->crc_chk, request->mode[j]);
    j++;
  }
  return true;
}

/// Sends source, buffer size and filter to the open node.
bool program(GstVantrel* self, SectionFilter* filter) {
  vantrel_section_set_bypass(self, filter);
  dmx_sct_filter_params params{};
  params.pid = static_cast<guint16>(filter->pid);
  if (filter->filter_len == 0)
    fill_plain(self, filter, &params.filter);
  else if (!fill_pattern(self, filter, &params.filter))
    return false;
  params.flags = (filter->crc_chk ? DMX_CHECK_CRC : 0) | DMX_IMMEDIATE_START;
  const guint buf_size = self->buf_size;
  if (qel_device_ioctl(filter->fd, KWRX_DMX_SET_BUFFER_SIZE, static_cast<gulong>(buf_size)) < 0)
    LOG_ERROR_AS(kStart, "error setting PES filter buffer size");
  if (qel_device_ioctl(filter->fd, KWRX_DMX_SET_FILTER, &params) == -1) {
    LOG_ERROR_AS(kStart, "[GST_VANTREL]ioctl KWRX_DMX_SET_FILTER failed");
    return false;
  }
  LOG_DEBUG_AS(kStart, "[GST_VANTREL]vantrel_start_section_filter success,buf_size: %d!!",
               buf_size);
  return true;
}

void stop_and_close(SectionFilter* filter) {
  qel_device_ioctl(filter->fd, KWRX_DMX_STOP, 0UL);
  qel_device_close(filter->device, filter->fd);
  filter->fd = -1;
}

void promote_waiting(GstVantrel* self) {
  while (!self->waiting_section_filters.empty()) {
    auto* filter = static_cast<SectionFilter*>(self->waiting_section_filters.next);
    filter->unlink();
    if (vantrel_start_section_filter(self, filter) != kSectionStarted) {
      filter->insert_after(self->waiting_section_filters);
      return;
    }
  }
}

/// Empties the poll table; the set loses what the table had put into it.
void clear_poll_table(GstVantrel* self, GstPoll* poll) {
  self->poll_section_bufs.fill(nullptr);
  for (GstPollFD& entry : self->poll_section_fds) {
    if (entry.fd == -1) continue;
    if (poll != nullptr) gst_poll_remove_fd(poll, &entry);
    gst_poll_fd_init(&entry);
  }
}

void watch(GstPoll* poll, GstPollFD* entry) {
  if (poll == nullptr) return;
  gst_poll_add_fd(poll, entry);
  gst_poll_fd_ctl_read(poll, entry, TRUE);
}

void add_poll_entry(GstVantrel* self, GstPoll* poll, SectionFilter* filter, gint index) {
  constexpr const char* kUpdate = "vantrel_update_poll_section_fds";
  LOG_DEBUG_AS(kUpdate, "[GST_VANTREL]poll fd %d", filter->fd);
  GstPollFD* entry = &self->poll_section_fds[index];
  entry->fd = filter->fd;
  watch(poll, entry);
  self->poll_section_bufs[index] = filter;
}

std::shared_ptr<PollSet> poll_set(GstVantrel* self) {
  std::lock_guard lock(self->poll_lock);
  return self->usrdata_poll;
}

}  // namespace

int vantrel_start_section_filter(GstVantrel* self, SectionFilter* filter) {
  if (self->n_section_running > static_cast<gint>(kMaxRunningSections) - 1) return kSectionNoSlot;
  filter->fd = qel_device_open(filter->device, O_RDWR | O_NONBLOCK);
  if (filter->fd < 0) {
    LOG_ERROR("demux device %s open failed (%d:%m)", filter->device, errno);
    return kSectionFailed;
  }
  if (!program(self, filter)) {
    if (filter->fd > 0) stop_and_close(filter);
    return kSectionFailed;
  }
  filter->unlink();
  filter->insert_after(self->running_section_filters);
  self->n_section_running++;
  vantrel_update_poll_section_fds(self);
  return kSectionStarted;
}

void vantrel_remove_section_filter(GstVantrel* self, SectionFilter* filter) {
  LOG_DEBUG("[GST_VANTREL][%p][%d]vantrel_remove_section_filter: pid %d, tid %d",
            static_cast<void*>(self), self->dmx_type.load(), filter->pid, filter->table_id);
  stop_and_close(filter);
  filter->unlink();
  self->n_section_running--;
  vantrel_update_poll_section_fds(self);
  promote_waiting(self);
}

void vantrel_update_poll_section_fds(GstVantrel* self) {
  const std::shared_ptr<PollSet> set = poll_set(self);
  GstPoll* poll = set != nullptr ? set->get() : nullptr;
  self->section_generation++;
  clear_poll_table(self, poll);
  gint i = 0;
  for (SectionLink* link = self->running_section_filters.next;
       link != &self->running_section_filters; link = link->next) {
    auto* filter = static_cast<SectionFilter*>(link);
    if (i == static_cast<gint>(kMaxRunningSections)) {
      LOG_DEBUG("[GST_VANTREL]too many poll_section_fds");
      break;
    }
    if (filter->fd == -1)
      LOG_DEBUG("[GST_VANTREL]s->fd == -1 on running_section_filters");
    else
      add_poll_entry(self, poll, filter, i++);
  }
  if (self->n_section_running != i) LOG_DEBUG("[GST_VANTREL]n_section_running is hosed");
}

void vantrel_attach_poll_set(GstVantrel* self, std::shared_ptr<PollSet> set) {
  std::lock_guard lock(self->section_lock);
  for (GstPollFD& entry : self->poll_section_fds)
    if (entry.fd != -1) watch(set->get(), &entry);
  std::lock_guard poll_lock(self->poll_lock);
  self->usrdata_poll = std::move(set);
}

}  // namespace vantrel
