// SPDX-License-Identifier: LGPL-2.1-or-later
#include "readers/pes_reader.h"

#include <poll.h>
#include <qel/device.h>

#include <cerrno>

#include "demux/stream_table.h"
#include "instance/log.h"
#include "readers/timed_wait.h"

namespace vantrel {
namespace {

constexpr const char* kPesPass = "vantrel_read_pes_filters";

constexpr gsize kPesReadSize = 131072;
constexpr int kPesSleepMs = 30;
constexpr int kPesPollWaitMs = 1;

bool delivers_pes(const GstVantrel* self) {
  return !self->paused || self->dmx_type == DMX_TYPE_DTV_RECORD;
}

/// A stream to read, pinned, and the node it had when it was found.
struct Target {
  StreamPtr stream;
  gint fd = -1;
};

/// Next subtitle or teletext stream from `index` on; index is left behind it.
/// Empty at the end of the table.
Target next_target(GstVantrel* self, guint* index) {
  std::lock_guard lock(self->stream_lock);
  while (*index < self->n_streams) {
    const StreamPtr& stream = self->streams[(*index)++];
    if (contains(kTextContents, stream->content)) return {stream, stream->fd};
  }
  return {};
}

/// poll() and not select(): a descriptor may be above 1023.
int vantrel_poll(int fd) {
  LOG_DEBUG("[GST_VANTREL]Poll timeout %d u-seconds", kPesPollWaitMs * 1000);
  pollfd entry{.fd = fd, .events = POLLIN, .revents = 0};
  int result = 0;
  do {
    result = poll(&entry, 1, kPesPollWaitMs);
  } while (result < 0 && errno == EINTR);
  LOG_DEBUG("[GST_VANTREL]Poll return %d ", result);
  return result;
}

/// One read of the node, if the stream still has it. 0 ends the drain.
guint read_pes(GstVantrel* self, const Target& target, guint* pid) {
  std::lock_guard lock(self->stream_lock);
  if (stream_index_locked(self, target.stream.get()) < 0 || target.stream->fd != target.fd)
    return 0;
  const ssize_t count = qel_device_read(target.fd, self->pes_buf, kPesReadSize);
  if (count <= 0) return 0;
  *pid = target.stream->pid;
  self->data_emissions++;
  return static_cast<guint>(count);
}

void drain(GstVantrel* self, const Target& target) {
  guint pid = 0;
  while (const guint size = read_pes(self, target, &pid)) {
    if (delivers_pes(self))
      g_signal_emit(self, gst_vantrel_signals[SIGNAL_PES_UPLOAD], 0, pid, self->pes_buf, size);
    finish_data_emission(self);
    LOG_DEBUG_AS(kPesPass, "[GST_VANTREL]VANTREL_SIGNAL_PES_UPLOAD done count: %d, pid %d\n", size,
                 pid);
    // A stream that never runs dry must not keep teardown waiting.
    if (!self->start_pesdata_flag) return;
  }
}

void vantrel_read_pes_filters(GstVantrel* self) {
  guint index = 0;
  while (self->start_pesdata_flag) {
    const Target target = next_target(self, &index);
    if (target.stream == nullptr) return;
    if (target.fd <= 0) {
      LOG_DEBUG("[GST_VANTREL]vantrel_read_pes_filters fd: %d\n", target.fd);
      return;
    }
    if (vantrel_poll(target.fd) != 0) drain(self, target);
  }
}

gpointer vantrel_pesdata_thread(gpointer data) {
  auto* self = static_cast<GstVantrel*>(data);
  enter_reader(self, kPesReader);
  self->pes_buf = static_cast<guint8*>(g_malloc(kPesReadSize));
  do {
    if (self->initiated == 1) vantrel_read_pes_filters(self);
  } while (!sleep_between_passes(self->pesdata_sem, kPesSleepMs) && self->start_pesdata_flag);
  g_free(std::exchange(self->pes_buf, nullptr));
  return nullptr;
}

}  // namespace

const Reader kPesReader = {"vantrel-pesdata",
                           "vantrel-pesdata",
                           &VantrelState::pesdata_thread,
                           &VantrelState::pesdata_sem,
                           &VantrelState::start_pesdata_flag,
                           vantrel_pesdata_thread,
                           "gst_vantrel_pes_initiate",
                           "demuxer_pesdata_thread create fail!\n"};

}  // namespace vantrel
