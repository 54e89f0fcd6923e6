// SPDX-License-Identifier: LGPL-2.1-or-later
#include <algorithm>

#include "demux/pads.h"
#include "demux/pes_filter.h"
#include "demux/sticky_events.h"
#include "demux/stream_table.h"
#include "instance/instance.h"
#include "instance/log.h"
#include "plugin/lifecycle.h"
#include "readers/pes_reader.h"
#include "readers/section_reader.h"
#include "sections/device.h"

namespace vantrel {
namespace {

constexpr const char* kOpen = "gst_tv_ts_demux_open";
constexpr const char* kCreateStream = "gst_tv_ts_demux_open--->gst_tv_ts_demux_create_stream";

void create_poll_set(GstVantrel* self) {
  if (self->usrdata_poll != nullptr) return;
  if (auto set = PollSet::create())
    vantrel_attach_poll_set(self, std::move(set));
  else
    LOG_ERROR_AS("gst_vantrel_pes_initiate", "Failed to create a GstPoll");
}

bool open_recorder(GstVantrel* self) {
  LOG_DEBUG_AS(kOpen, "[GST_VANTREL] Used as recorder Demux");
  self->spts_srcpad = create_spts_pad(self);
  if (!self->spts_srcpad) LOG_DEBUG_AS(kOpen, "create spts-src pad fail");
  gst_element_no_more_pads(as_element(self));
  return true;
}

/// A record that is not among those tried; empty when there is none.
StreamPtr next_untried(GstVantrel* self, const std::vector<StreamPtr>& tried) {
  for (StreamPtr& stream : stream_snapshot(self))
    if (std::find(tried.begin(), tried.end(), stream) == tried.end()) return std::move(stream);
  return nullptr;
}

/// Makes the pads of the streams configured so far; false when none was made.
/// Handlers of "pad-added" may add and remove streams meanwhile.
bool open_streams(GstVantrel* self) {
  guint created = 0;
  std::vector<StreamPtr> tried;
  while (const StreamPtr stream = next_untried(self, tried)) {
    tried.push_back(stream);
    if (gst_tv_ts_demux_create_stream(self, stream)) created++;
    LOG_DEBUG_AS(kOpen, "[GST_VANTREL] %s!!", kCreateStream);
  }
  gst_element_no_more_pads(as_element(self));
  if (created == 0) LOG_DEBUG_AS(kOpen, "[GST_VANTREL] %s 0!!", kCreateStream);
  return created != 0;
}

void gst_tv_ts_demux_open(GstVantrel* self) {
  if (self->opened) {
    announce_pads(self);
    return;
  }
  PERF_BEGIN();
  const bool complete = is_record_mode(self->dmx_type) ? open_recorder(self) : open_streams(self);
  self->opened = TRUE;
  if (complete) PERF_END();
}

/// Opens a node for each stream; the index of the first one without, or -1.
int open_devices(GstVantrel* self) {
  std::lock_guard lock(self->stream_lock);
  for (guint i = 0; i < self->n_streams; i++)
    if (gst_tv_ts_demux_open_demux(self, self->streams[i].get()) != TRUE)
      return static_cast<int>(i);
  return -1;
}

gboolean gst_tv_ts_demux_create_devices(GstVantrel* self) {
  PERF_BEGIN();
  if (!self->devices_created) {
    const int failed = open_devices(self);
    if (failed >= 0) {
      LOG_ERROR("failed to create demux device %i", failed);
      return FALSE;
    }
    self->devices_created = TRUE;
  }
  PERF_END();
  return TRUE;
}

}  // namespace
}  // namespace vantrel

gboolean gst_vantrel_pes_initiate(GstTvBaseFilter* filter) {
  using namespace vantrel;
  auto* self = static_cast<GstVantrel*>(filter);
  PERF_BEGIN();
  LOG_SYSTEM_INFO("[vantrel:%p] called ", static_cast<void*>(self));
  start_reader(self, kSectionReader);
  create_poll_set(self);
  start_reader(self, kPesReader);
  {
    std::lock_guard lock(self->demux_lock);
    gst_tv_ts_demux_open(self);
    if (!gst_tv_ts_demux_create_devices(self)) return FALSE;
  }
  self->initiated = 1;
  PERF_END();
  return TRUE;
}

gboolean gst_vantrel_initiate(GstTvBaseFilter* filter) {
  LOG_SYSTEM_INFO("called");
  gst_vantrel_pes_initiate(filter);
  return TRUE;
}
