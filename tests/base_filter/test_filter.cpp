// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tests/base_filter/test_filter.h"

namespace vantrel::test {
namespace {

struct TestFilter {
  GstTvBaseFilter parent;
  Script* script;
  gint demux_id;    // atomic, as any thread may write properties
  gint demux_type;  // atomic
};
using TestFilterClass = GstTvBaseFilterClass;

enum { kDemuxId = 1, kDemuxType };

TestFilter* test_filter(gpointer object) { return static_cast<TestFilter*>(object); }

gint* property(GObject* object, guint id) {
  return id == kDemuxId ? &test_filter(object)->demux_id : &test_filter(object)->demux_type;
}

gboolean initiate(GstTvBaseFilter* f) { return test_filter(f)->script->run("initiate"); }
gboolean start(GstTvBaseFilter* f) { return test_filter(f)->script->run("start"); }
gboolean stop(GstTvBaseFilter* f) { return test_filter(f)->script->run("stop"); }
gboolean destory(GstTvBaseFilter* f) { return test_filter(f)->script->run("destory"); }
gboolean pause(GstTvBaseFilter* f) { return test_filter(f)->script->run("pause"); }
gboolean resume(GstTvBaseFilter* f) { return test_filter(f)->script->run("resume"); }

void class_init(gpointer klass, gpointer has_sink) {
  auto* object_class = G_OBJECT_CLASS(klass);
  object_class->set_property = [](GObject* object, guint id, const GValue* value, GParamSpec*) {
    g_atomic_int_set(property(object, id), static_cast<gint>(g_value_get_uint(value)));
  };
  object_class->get_property = [](GObject* object, guint id, GValue* value, GParamSpec*) {
    g_value_set_uint(value, static_cast<guint>(g_atomic_int_get(property(object, id))));
    if (test_filter(object)->script->reading)
      std::exchange(test_filter(object)->script->reading, nullptr)();
  };
  g_object_class_install_property(
      object_class, kDemuxId,
      g_param_spec_uint("demux-id", nullptr, nullptr, 0, 6, 0, G_PARAM_READWRITE));
  g_object_class_install_property(
      object_class, kDemuxType,
      g_param_spec_uint("demux-type", nullptr, nullptr, 0, 65535, 0, G_PARAM_READWRITE));
  gst_element_class_set_static_metadata(GST_ELEMENT_CLASS(klass), "test", "Demuxer", "test",
                                        "test");
  static GstStaticPadTemplate sink = GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS,
                                                             GST_STATIC_CAPS("video/mpegts"));
  if (has_sink != nullptr)
    gst_element_class_add_static_pad_template(GST_ELEMENT_CLASS(klass), &sink);
  auto* operations = static_cast<TestFilterClass*>(klass);
  operations->initiate = initiate;
  operations->start = start;
  operations->stop = stop;
  operations->destory = destory;
  operations->pause = pause;
  operations->resume = resume;
}

GType register_type(const char* name, bool has_sink) {
  GTypeInfo info{};
  info.class_size = sizeof(TestFilterClass);
  info.class_init = class_init;
  info.class_data = GINT_TO_POINTER(has_sink);
  info.instance_size = sizeof(TestFilter);
  return g_type_register_static(GST_TYPE_TV_BASE_FILTER, name, &info, GTypeFlags{});
}

}  // namespace

gboolean Script::run(const char* operation) {
  if (hook) hook(operation);
  const std::lock_guard lock(mutex_);
  operations_ += operations_.empty() ? operation : std::string(" ") + operation;
  return results_.count(operation) == 0;
}

std::string Script::take() {
  const std::lock_guard lock(mutex_);
  return std::exchange(operations_, {});
}

GstElement* new_test_filter(Script& script, bool has_sink) {
  static const GType type = register_type("TestFilter", true);
  static const GType no_sink_type = register_type("TestFilterNoSink", false);
  auto* element = static_cast<GstElement*>(g_object_new(has_sink ? type : no_sink_type, nullptr));
  test_filter(element)->script = &script;
  return element;
}

GstPad* add_source_pad(GstElement* element, bool can_be_activated) {
  GstPad* pad = gst_pad_new("src", GST_PAD_SRC);
  if (!can_be_activated)
    gst_pad_set_activate_function(pad, [](GstPad*, GstObject*) -> gboolean { return FALSE; });
  gst_element_add_pad(element, pad);
  return pad;
}

}  // namespace vantrel::test
