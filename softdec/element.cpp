// SPDX-License-Identifier: LGPL-2.1-or-later
#include "softdec/element.h"

namespace softdec {
namespace {

enum : guint { PROP_DEVICE = 1, PROP_AUDIO_LOCK };

struct Shell {
  GstElement parent;
  Delegate* delegate;  // made in init, destroyed in finalize
};

struct ShellClass {
  GstElementClass parent_class;
  const Kind* kind;
};

GstElementClass* g_parent = nullptr;

Delegate& delegate_of(gpointer object) { return *static_cast<Shell*>(object)->delegate; }

// --- Pads --------------------------------------------------------------------

gboolean on_source_activate(GstPad*, GstObject* parent, GstPadMode mode, gboolean active) {
  return mode == GST_PAD_MODE_PUSH && delegate_of(parent).activate_source(active != FALSE);
}

gboolean on_source_event(GstPad*, GstObject* parent, GstEvent* event) {
  return delegate_of(parent).source_event(event);
}

gboolean on_source_query(GstPad*, GstObject* parent, GstQuery* query) {
  return delegate_of(parent).source_query(query);
}

gboolean on_sink_event(GstPad*, GstObject* parent, GstEvent* event) {
  return delegate_of(parent).sink_event(event);
}

GstPadLinkReturn on_sink_link(GstPad*, GstObject* parent, GstPad*) {
  delegate_of(parent).linked();
  return GST_PAD_LINK_OK;
}

/// No data comes this way.
GstFlowReturn on_sink_buffer(GstPad*, GstObject*, GstBuffer* buffer) {
  gst_buffer_unref(buffer);
  return GST_FLOW_OK;
}

GstPad* add_pad(Shell* self, GstElementClass* klass, const char* name) {
  GstPad* pad = gst_pad_new_from_template(gst_element_class_get_pad_template(klass, name), name);
  gst_element_add_pad(&self->parent, pad);
  return pad;
}

// --- Element -----------------------------------------------------------------

GstStateChangeReturn change_state(GstElement* element, GstStateChange transition) {
  Delegate& delegate = delegate_of(element);
  if (transition == GST_STATE_CHANGE_READY_TO_PAUSED) delegate.start();
  if (transition == GST_STATE_CHANGE_PAUSED_TO_PLAYING && !delegate.play())
    return GST_STATE_CHANGE_FAILURE;
  if (transition == GST_STATE_CHANGE_PLAYING_TO_PAUSED) delegate.pause();
  const GstStateChangeReturn result = g_parent->change_state(element, transition);
  const bool failed = result == GST_STATE_CHANGE_FAILURE;
  if (transition == GST_STATE_CHANGE_PAUSED_TO_READY ||
      (transition == GST_STATE_CHANGE_READY_TO_PAUSED && failed))
    delegate.stop();
  // As of a live source: data comes in PLAYING, and no bin is to wait for it before.
  const bool paused = GST_STATE_TRANSITION_NEXT(transition) == GST_STATE_PAUSED;
  return paused && !failed ? GST_STATE_CHANGE_NO_PREROLL : result;
}

void set_property(GObject* object, guint id, const GValue* value, GParamSpec*) {
  if (id == PROP_DEVICE) delegate_of(object).set_device(g_value_get_string(value));
}

void get_property(GObject* object, guint id, GValue* value, GParamSpec*) {
  if (id == PROP_DEVICE) g_value_set_string(value, delegate_of(object).device().c_str());
  if (id == PROP_AUDIO_LOCK) g_value_set_boolean(value, delegate_of(object).audio_lock());
}

void finalize(GObject* object) {
  delete reinterpret_cast<Shell*>(object)->delegate;
  G_OBJECT_CLASS(g_parent)->finalize(object);
}

void add_template(GstElementClass* klass, const char* name, GstPadDirection direction,
                  const char* types) {
  g_autoptr(GstCaps) caps = gst_caps_from_string(types);
  gst_element_class_add_pad_template(klass,
                                     gst_pad_template_new(name, direction, GST_PAD_ALWAYS, caps));
}

void install_properties(GObjectClass* klass) {
  klass->set_property = set_property;
  klass->get_property = get_property;
  klass->finalize = finalize;
  g_object_class_install_property(
      klass, PROP_DEVICE,
      g_param_spec_string("device", "Device",
                          "Logical name of the node, as vdec0, adec0 or qel_dvr0 (unset: the one "
                          "that the demultiplexer's stream goes to)",
                          nullptr,
                          static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS)));
  g_object_class_install_property(
      klass, PROP_AUDIO_LOCK,
      g_param_spec_boolean("audio-lock", "Audio lock", "The audio decoder has found its stream",
                           FALSE,
                           static_cast<GParamFlags>(G_PARAM_READABLE | G_PARAM_STATIC_STRINGS)));
}

void class_init(gpointer g_class, gpointer data) {
  auto* klass = static_cast<ShellClass*>(g_class);
  klass->kind = static_cast<const Kind*>(data);
  g_parent = GST_ELEMENT_CLASS(g_type_class_peek_parent(g_class));
  auto* element_class = GST_ELEMENT_CLASS(g_class);
  install_properties(G_OBJECT_CLASS(g_class));
  element_class->change_state = change_state;
  gst_element_class_set_static_metadata(element_class, klass->kind->long_name, klass->kind->klass,
                                        klass->kind->description,
                                        "vantrel developers <https://vantrel.example>");
  add_template(element_class, "sink", GST_PAD_SINK, klass->kind->sink_types);
  add_template(element_class, "src", GST_PAD_SRC, klass->kind->source_types);
}

void instance_init(GTypeInstance* instance, gpointer g_class) {
  auto* self = reinterpret_cast<Shell*>(instance);
  auto* klass = GST_ELEMENT_CLASS(g_class);
  GstPad* sink = add_pad(self, klass, "sink");
  GstPad* source = add_pad(self, klass, "src");
  const Kind& kind = *static_cast<ShellClass*>(g_class)->kind;
  self->delegate = kind.make(&self->parent, sink, source, kind).release();
  gst_pad_set_chain_function(sink, on_sink_buffer);
  gst_pad_set_event_function(sink, on_sink_event);
  gst_pad_set_link_function(sink, on_sink_link);
  gst_pad_set_activatemode_function(source, on_source_activate);
  gst_pad_set_event_function(source, on_source_event);
  gst_pad_set_query_function(source, on_source_query);
}

}  // namespace

bool register_element(GstPlugin* plugin, const Kind& kind) {
  const GTypeInfo info = {
      .class_size = sizeof(ShellClass),
      .base_init = nullptr,
      .base_finalize = nullptr,
      .class_init = class_init,
      .class_finalize = nullptr,
      .class_data = &kind,
      .instance_size = sizeof(Shell),
      .n_preallocs = 0,
      .instance_init = instance_init,
      .value_table = nullptr,
  };
  const GType type =
      g_type_register_static(GST_TYPE_ELEMENT, kind.type_name, &info, static_cast<GTypeFlags>(0));
  return gst_element_register(plugin, kind.element, GST_RANK_NONE, type) != FALSE;
}

}  // namespace softdec
