// SPDX-License-Identifier: LGPL-2.1-or-later
#include "plugin/gstvantrel.h"

#include "config/properties.h"
#include "instance/instance.h"
#include "instance/log.h"
#include "instance/reader_thread.h"
#include "plugin/lifecycle.h"
#include "plugin/lifetime.h"
#include "plugin/signals.h"
#include "sections/registry.h"

namespace {

GstDebugCategory* gst_vantrel_debug = nullptr;
GstElementClass* parent_class = nullptr;

GstStaticPadTemplate g_pad_templates[] = {
    GST_STATIC_PAD_TEMPLATE("video_%04x", GST_PAD_SRC, GST_PAD_SOMETIMES, GST_STATIC_CAPS("ANY")),
    GST_STATIC_PAD_TEMPLATE("audio_%04x", GST_PAD_SRC, GST_PAD_SOMETIMES, GST_STATIC_CAPS("ANY")),
    GST_STATIC_PAD_TEMPLATE("audio_des_%04x", GST_PAD_SRC, GST_PAD_SOMETIMES,
                            GST_STATIC_CAPS("ANY")),
    GST_STATIC_PAD_TEMPLATE("subtitle_%04x", GST_PAD_SRC, GST_PAD_SOMETIMES,
                            GST_STATIC_CAPS("ANY")),
    GST_STATIC_PAD_TEMPLATE("spts_src_%04x", GST_PAD_SRC, GST_PAD_SOMETIMES,
                            GST_STATIC_CAPS("video/mpegts")),
    GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS("video/mpegts")),
};

bool goes_down(GstStateChange transition) {
  return GST_STATE_TRANSITION_NEXT(transition) < GST_STATE_TRANSITION_CURRENT(transition);
}

/// The element whose state the calling thread is changing; NULL for none.
thread_local const GstVantrel* changing_state = nullptr;

/// Where the caller would have to wait for itself; NULL where it would not.
const char* inside_of(const GstVantrel* self) {
  if (vantrel::on_reader_thread_of(self)) return "a signal handler, whose thread it would join";
  if (self->demux_lock.held_here()) return "a change of streams";
  return changing_state == self ? "a change of state" : nullptr;
}

GstStateChangeReturn gst_vantrel_change_state(GstElement* element, GstStateChange transition) {
  auto* self = reinterpret_cast<GstVantrel*>(element);
  const char* place = goes_down(transition) ? inside_of(self) : nullptr;
  if (place != nullptr) {
    LOG_WARNING("%s asked for from within %s: refused; use gst_element_call_async()",
                gst_state_change_get_name(transition), place);
    return GST_STATE_CHANGE_FAILURE;
  }
  const GstVantrel* outer = std::exchange(changing_state, self);
  const GstStateChangeReturn result = parent_class->change_state(element, transition);
  changing_state = outer;
  return result;
}

/// From inside of the element nobody may wait for the state lock: who holds it
/// may be taking the element down, and waiting for the caller.
GstStateChangeReturn gst_vantrel_set_state(GstElement* element, GstState state) {
  auto* self = reinterpret_cast<GstVantrel*>(element);
  if (inside_of(self) == nullptr) return parent_class->set_state(element, state);
  if (!GST_STATE_TRYLOCK(element)) {
    LOG_WARNING("%s asked for from within %s while another thread changes the state: refused",
                gst_element_state_get_name(state), inside_of(self));
    return GST_STATE_CHANGE_FAILURE;
  }
  const GstStateChangeReturn result = parent_class->set_state(element, state);
  GST_STATE_UNLOCK(element);
  return result;
}

void set_object_functions(GstVantrelClass* klass) {
  auto* object_class = G_OBJECT_CLASS(klass);
  object_class->dispose = gst_vantrel_dispose;
  object_class->finalize = gst_vantrel_finalize;
  object_class->set_property = vantrel::gst_vantrel_set_property;
  object_class->get_property = vantrel::gst_vantrel_get_property;
  klass->add_filter = vantrel::gst_vantrel_add_filter;
  klass->remove_filter = vantrel::gst_vantrel_remove_filter;
}

void describe_element(GstElementClass* element_class) {
  gst_element_class_set_static_metadata(element_class, "vantrel", "Demuxer",
                                        "Demultiplex ts data to audio video and also MPTS->SPTS",
                                        "vantrel developers <https://vantrel.example>");
  for (GstStaticPadTemplate& row : g_pad_templates)
    gst_element_class_add_static_pad_template(element_class, &row);
  element_class->change_state = gst_vantrel_change_state;
  element_class->set_state = gst_vantrel_set_state;
}

void fill_lifecycle_slots(GstTvBaseFilterClass* klass) {
  klass->destory = GST_DEBUG_FUNCPTR(gst_vantrel_destory);
  klass->initiate = GST_DEBUG_FUNCPTR(gst_vantrel_initiate);
  klass->pause = GST_DEBUG_FUNCPTR(gst_vantrel_pause);
  klass->resume = GST_DEBUG_FUNCPTR(gst_vantrel_resume);
  klass->start = GST_DEBUG_FUNCPTR(gst_vantrel_start);
  klass->stop = GST_DEBUG_FUNCPTR(gst_vantrel_stop);
}

void gst_vantrel_class_init(gpointer g_class, gpointer) {
  PERF_BEGIN();
  LOG_SYSTEM_INFO("called");
  auto* klass = static_cast<GstVantrelClass*>(g_class);
  parent_class = static_cast<GstElementClass*>(g_type_class_peek_parent(g_class));
  create_signals(g_class);
  set_object_functions(klass);
  vantrel::install_properties(G_OBJECT_CLASS(klass));
  describe_element(GST_ELEMENT_CLASS(klass));
  fill_lifecycle_slots(&klass->parent_class);
  PERF_END();
}

GType register_type() {
  const GTypeInfo info = {
      .class_size = sizeof(GstVantrelClass),
      .base_init = nullptr,
      .base_finalize = nullptr,
      .class_init = gst_vantrel_class_init,
      .class_finalize = nullptr,
      .class_data = nullptr,
      .instance_size = sizeof(GstVantrel),
      .n_preallocs = 0,
      .instance_init = gst_vantrel_init,
      .value_table = nullptr,
  };
  return g_type_register_static(gst_tv_base_filter_get_type(), "Gstvantrel", &info,
                                static_cast<GTypeFlags>(0));
}

gboolean plugin_init(GstPlugin* plugin) {
  LOG_DEBUG("[PERF_CHECK][BEGIN]");
  static std::once_flag categories;
  std::call_once(categories, [] {
    GST_DEBUG_CATEGORY_INIT(gst_vantrel_debug, "vantrel", 0, "Tv player demuxer plugin");
    GstDebugCategory* check = nullptr;
    GST_DEBUG_CATEGORY_INIT(check, "tvsectioncheck", 0, "Integrity check of sections");
  });
  return gst_element_register(plugin, "vantrel", GST_RANK_NONE, gst_vantrel_get_type());
}

}  // namespace

GType gst_vantrel_get_type() {
  static gsize type = 0;
  if (g_once_init_enter(&type)) g_once_init_leave(&type, register_type());
  return type;
}

// Written out, since the framework's macro hides the descriptor and exports
// functions of its own.
GstPluginDesc gst_plugin_desc = {
    1,           12,
    "vantrel",   "Tv player demuxer plugin",
    plugin_init, "0.0.1",
    "LGPL",      "gst-plugins-holm",
    "vantrel",   "https://vantrel.example",
    nullptr,     GST_PADDING_INIT,
};
