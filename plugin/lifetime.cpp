// SPDX-License-Identifier: LGPL-2.1-or-later
#include "plugin/lifetime.h"

#include <new>

#include "demux/change.h"
#include "events/sink_events.h"
#include "events/source_events.h"
#include "instance/instance.h"
#include "instance/log.h"
#include "instance/reader_thread.h"
#include "plugin/lifecycle.h"
#include "sections/registry.h"

using namespace vantrel;

namespace {

GObjectClass* base_class() {
  return static_cast<GObjectClass*>(g_type_class_peek(gst_tv_base_filter_get_type()));
}

/// A handler has dropped the last reference on a thread that teardown joins:
/// another thread drops it, so that the joining can be done. It joins before it
/// drops: as long as the reader is in g_object_unref(), that would finalize.
void drop_on_another_thread(GObject* object) {
  const auto drop = [](gpointer reference) -> gpointer {
    gst_vantrel_destory(GST_TV_BASE_FILTER(reference));
    g_object_unref(reference);
    return nullptr;
  };
  g_autoptr(GError) error = nullptr;
  GThread* thread = g_thread_try_new("vantrel-dispose", drop, g_object_ref(object), &error);
  if (thread != nullptr)
    g_thread_unref(thread);
  else
    LOG_ERROR("no thread to end the readers on, the element stays: %s", error->message);
}

}  // namespace

void gst_vantrel_init(GTypeInstance* instance, gpointer) {
  PERF_BEGIN();
  LOG_SYSTEM_INFO("called");
  auto* self = reinterpret_cast<GstVantrel*>(instance);
  new (static_cast<VantrelState*>(self)) VantrelState();
  gst_pad_set_event_function(self->sinkpad, GST_DEBUG_FUNCPTR(gst_tv_ts_demux_handle_sink_event));
  self->src_event = gst_tv_ts_demux_handle_src_event;
  for (GstPollFD& entry : self->poll_section_fds) gst_poll_fd_init(&entry);
  PERF_END();
}

/// Readers that the base class does not know of: whoever calls the exported
/// functions starts them without a state change, the TEMI reader always.
void gst_vantrel_dispose(GObject* object) {
  auto* self = reinterpret_cast<GstVantrel*>(object);
  if (on_reader_thread_of(self)) {
    drop_on_another_thread(object);
    return;
  }
  const bool is_up = self->userdata_thread.load() != nullptr ||
                     self->pesdata_thread.load() != nullptr ||
                     self->temi_thread.load() != nullptr || self->temi_fd >= 0;
  if (is_up) gst_vantrel_destory(self);
  base_class()->dispose(object);
}

void gst_vantrel_finalize(GObject* object) {
  PERF_BEGIN();
  LOG_SYSTEM_INFO("called");
  auto* self = reinterpret_cast<GstVantrel*>(object);
  // What no teardown has seen: set before a start-up that never came, or after
  // the last teardown.
  vantrel_clear_section_filter(self);
  clear_streams(self);
  // The base class's part of the record goes last.
  static_cast<VantrelState*>(self)->~VantrelState();
  base_class()->finalize(object);
  PERF_END();
}
