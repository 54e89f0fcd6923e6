// SPDX-License-Identifier: LGPL-2.1-or-later
#include "readers/temi_reader.h"

#include <fcntl.h>
#include <poll.h>
#include <qel/device.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "demux/node_names.h"
#include "instance/log.h"
#include "readers/timed_wait.h"

namespace vantrel {
namespace {

constexpr const char* kThread = "vantrel_temi_data_thread";

constexpr int kTemiPollWaitMs = 1000;
constexpr int kTemiSleepMs = 100;

/// The bytes that handlers get: the reader's own, so that no other element's
/// data and no other thread gets in between.
using TemiData = std::vector<guint8>;

bool wait_for_data(int fd) {
  pollfd entry{.fd = fd, .events = POLLIN, .revents = 0};
  if (poll(&entry, 1, kTemiPollWaitMs) == 0) {
    LOG_INFO_AS(kThread, "poll time out");
    return false;
  }
  return (entry.revents & POLLIN) != 0;
}

/// Bytes to read, at most a buffer of them; 0 or less for none.
gint waiting_bytes(int fd) {
  dmx_read_size query{};
  if (qel_device_ioctl(fd, KWRX_DMX_GET_READ_SIZE, &query) < 0) {
    LOG_INFO_AS(kThread, "temi demux get read size fail");
    return 0;
  }
  return std::min<gint>(query.size, kTemiBufferSize);
}

void read_and_emit(GstVantrel* self, int fd, TemiData* temi_data, gint size) {
  {
    std::lock_guard lock(self->stream_lock);
    self->data_emissions++;
  }
  const ssize_t count = qel_device_read(fd, temi_data->data(), static_cast<gsize>(size));
  if (count > 0)
    g_signal_emit(self, gst_vantrel_signals[SIGNAL_TEMI_DATA], 0, static_cast<guint>(count),
                  temi_data->data());
  finish_data_emission(self);
}

void read_once(GstVantrel* self, int fd, TemiData* temi_data) {
  if (self->initiated != 1 || self->temi_enable != TRUE || self->temi_fd <= 0) return;
  if (self->temi_clear.exchange(FALSE)) std::fill(temi_data->begin(), temi_data->end(), 0);
  if (!wait_for_data(fd)) return;
  const gint size = waiting_bytes(fd);
  if (size > 0) read_and_emit(self, fd, temi_data, size);
}

gpointer vantrel_temi_data_thread(gpointer data) {
  auto* self = static_cast<GstVantrel*>(data);
  enter_reader(self, kTemiReader);
  const int fd = self->temi_fd;
  TemiData temi_data(kTemiBufferSize);
  do {
    read_once(self, fd, &temi_data);
  } while (!sleep_between_passes(self->temi_sem, kTemiSleepMs) && self->start_temi_flag);
  return nullptr;
}

bool open_node(GstVantrel* self) {
  std::lock_guard lock(self->stream_lock);
  if (self->temi_fd >= 0) return true;  // the running thread has it
  const char* node = temi_node_name(self->demux_id);
  const int fd = qel_device_open(node, O_RDONLY | O_NONBLOCK);
  if (fd < 0)
    LOG_ERROR_AS("gst_vantrel_temi_initiate", "TEMI device (%s) open fail (%d:%m)", node, errno);
  self->temi_fd = fd;
  return fd >= 0;
}

}  // namespace

const Reader kTemiReader = {"temi-data",
                            "temi-data",
                            &VantrelState::temi_thread,
                            &VantrelState::temi_sem,
                            &VantrelState::start_temi_flag,
                            vantrel_temi_data_thread,
                            "gst_vantrel_temi_initiate",
                            "temi_thread create fail"};

}  // namespace vantrel

gboolean gst_vantrel_temi_initiate(GstTvBaseFilter* filter) {
  PERF_BEGIN();
  auto* self = static_cast<GstVantrel*>(filter);
  LOG_SYSTEM_INFO("[vantrel:%p] called ", static_cast<void*>(self));
  std::lock_guard lock(self->temi_lock);
  if (vantrel::open_node(self)) vantrel::start_reader(self, vantrel::kTemiReader);
  PERF_END();
  return TRUE;
}
