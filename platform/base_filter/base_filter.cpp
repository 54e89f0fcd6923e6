// SPDX-License-Identifier: LGPL-2.1-or-later
#include <qel/base_filter.h>

#include <mutex>

#include "platform/base_filter/end_of_stream.h"
#include "platform/base_filter/input_feed.h"
#include "platform/log/log_line.h"

struct _GstTvBaseFilterPrivate {
  explicit _GstTvBaseFilterPrivate(GstElement* element) : end_of_stream(element) {}

  qel::InputFeed feed;
  qel::EndOfStream end_of_stream;
  /// One operation at a time. State changes have the state lock for that; it is
  /// taken inside, and guards dispose and the thread sanitizer's view as well.
  std::recursive_mutex operation_lock;
  bool initiated = false;  // guarded by operation_lock
};

namespace {

using Operation = gboolean (*)(GstTvBaseFilter*);

GstElementClass* g_parent_class = nullptr;

// --- Where the data goes -----------------------------------------------------

/// A property of the subclass as a number; 0 where it has none of that name.
guint number_property(GstTvBaseFilter* self, const char* name) {
  if (g_object_class_find_property(G_OBJECT_GET_CLASS(self), name) == nullptr) return 0;
  g_auto(GValue) value = G_VALUE_INIT;
  g_value_init(&value, G_TYPE_UINT);
  g_object_get_property(G_OBJECT(self), name, &value);
  return g_value_get_uint(&value);
}

/// Types 0 (live) and 2 (recording of a live stream) come from the front-end.
qel::FeedTarget feed_target(GstTvBaseFilter* self) {
  const guint type = number_property(self, "demux-type");
  return {number_property(self, "demux-id"), type == 0 || type == 2 ? DMX_IN_FRONTEND : DMX_IN_DVR};
}

/// Looks again after each turn: another thread may have written meanwhile, and
/// been followed first.
void on_target_changed(GstTvBaseFilter* self, GParamSpec*, gpointer) {
  qel::FeedTarget target;
  do {
    target = feed_target(self);
    self->priv->feed.redirect(target);
  } while (feed_target(self) != target);
}

// --- Sink pad ----------------------------------------------------------------

/// Memory by memory: mapping a buffer of several would copy it together.
GstFlowReturn on_buffer(GstPad*, GstObject* parent, GstBuffer* buffer) {
  g_autoptr(GstBuffer) owned = buffer;
  auto& feed = GST_TV_BASE_FILTER(parent)->priv->feed;
  for (guint i = 0; i < gst_buffer_n_memory(owned); ++i) {
    GstMapInfo map;
    if (!gst_buffer_map_range(owned, i, 1, &map, GST_MAP_READ)) {
      QEL_LOG_LINE(QEL_LOG_ERROR, "buffer of %" G_GSIZE_FORMAT " bytes cannot be mapped, dropped",
                   gst_buffer_get_size(owned));
      continue;
    }
    const bool passed = feed.feed({map.data, map.size});
    gst_buffer_unmap(owned, &map);
    if (!passed) return GST_FLOW_FLUSHING;
  }
  return GST_FLOW_OK;
}

/// Runs on a thread of the framework: the streaming thread holds the pad's stream
/// lock until the event function, the subclass's too, has returned.
void announce_end_of_stream(GstElement* element, gpointer) {
  auto* self = GST_TV_BASE_FILTER(element);
  GST_PAD_STREAM_LOCK(self->sinkpad);
  GST_PAD_STREAM_UNLOCK(self->sinkpad);
  self->priv->end_of_stream.passed();
}

GstPadProbeReturn on_end_of_stream(GstElement* element, GstEvent* event) {
  auto* priv = GST_TV_BASE_FILTER(element)->priv;
  if (!priv->feed.end()) return GST_PAD_PROBE_DROP;
  priv->end_of_stream.arrived(gst_event_get_seqnum(event));
  gst_element_call_async(element, announce_end_of_stream, nullptr, nullptr);
  return GST_PAD_PROBE_OK;
}

/// A probe, as the subclass may replace the pad's event function.
GstPadProbeReturn on_event(GstPad* pad, GstPadProbeInfo* info, gpointer) {
  g_autoptr(GstElement) element = gst_pad_get_parent_element(pad);
  if (element == nullptr) return GST_PAD_PROBE_OK;
  auto* priv = GST_TV_BASE_FILTER(element)->priv;
  GstEvent* event = GST_PAD_PROBE_INFO_EVENT(info);
  switch (GST_EVENT_TYPE(event)) {
    case GST_EVENT_FLUSH_START:
      priv->feed.begin_flush();
      break;
    case GST_EVENT_FLUSH_STOP:
      priv->feed.end_flush();
      priv->end_of_stream.forget();
      break;
    case GST_EVENT_STREAM_START:
      priv->end_of_stream.forget();
      break;
    case GST_EVENT_EOS:
      return on_end_of_stream(element, event);
    default:
      break;
  }
  return GST_PAD_PROBE_OK;
}

void add_sink_pad(GstTvBaseFilter* self, GstElementClass* element_class) {
  GstPadTemplate* pad_template = gst_element_class_get_pad_template(element_class, "sink");
  if (pad_template == nullptr) return;
  self->sinkpad = gst_pad_new_from_template(pad_template, "sink");
  gst_pad_set_chain_function(self->sinkpad, on_buffer);
  const int events = GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM | GST_PAD_PROBE_TYPE_EVENT_FLUSH;
  gst_pad_add_probe(self->sinkpad, static_cast<GstPadProbeType>(events), on_event, nullptr,
                    nullptr);
  gst_element_add_pad(GST_ELEMENT(self), self->sinkpad);
}

// --- Element state -----------------------------------------------------------

bool run(GstTvBaseFilter* self, Operation operation) {
  const std::lock_guard lock(self->priv->operation_lock);
  return operation == nullptr || operation(self);
}

GstStateChangeReturn change_parent(GstTvBaseFilter* self, GstStateChange transition) {
  return g_parent_class->change_state(GST_ELEMENT(self), transition);
}

/// The element is live: it has nothing to show before PLAYING.
GstStateChangeReturn no_preroll(GstStateChangeReturn result) {
  return result == GST_STATE_CHANGE_FAILURE ? result : GST_STATE_CHANGE_NO_PREROLL;
}

bool initiate(GstTvBaseFilter* self) {
  const std::lock_guard lock(self->priv->operation_lock);
  if (!run(self, GST_TV_BASE_FILTER_GET_CLASS(self)->initiate)) return false;
  self->priv->initiated = true;
  return true;
}

void undo_initiate(GstTvBaseFilter* self) {
  const std::lock_guard lock(self->priv->operation_lock);
  if (!self->priv->initiated) return;
  self->priv->initiated = false;
  if (!run(self, GST_TV_BASE_FILTER_GET_CLASS(self)->destory))
    QEL_LOG_LINE(QEL_LOG_WARNING, "%s: destory failed", GST_OBJECT_NAME(self));
}

/// Releases the streaming thread before the pads wait for it.
GstStateChangeReturn deactivate(GstTvBaseFilter* self) {
  self->priv->feed.stop();
  return change_parent(self, GST_STATE_CHANGE_PAUSED_TO_READY);
}

GstStateChangeReturn ready_to_paused(GstTvBaseFilter* self) {
  auto* priv = self->priv;
  if (!initiate(self)) return GST_STATE_CHANGE_FAILURE;
  priv->end_of_stream.forget();
  priv->feed.begin(feed_target(self));
  on_target_changed(self, nullptr, nullptr);
  const auto result = change_parent(self, GST_STATE_CHANGE_READY_TO_PAUSED);
  if (result == GST_STATE_CHANGE_FAILURE) {
    deactivate(self);
    undo_initiate(self);
    priv->feed.finish();
  }
  return no_preroll(result);
}

GstStateChangeReturn paused_to_playing(GstTvBaseFilter* self) {
  auto* priv = self->priv;
  priv->feed.starting();
  const auto result = change_parent(self, GST_STATE_CHANGE_PAUSED_TO_PLAYING);
  const bool parent_plays = result != GST_STATE_CHANGE_FAILURE;
  const bool started = parent_plays && run(self, GST_TV_BASE_FILTER_GET_CLASS(self)->start);
  priv->feed.started(started);
  if (!started) {
    if (parent_plays) change_parent(self, GST_STATE_CHANGE_PLAYING_TO_PAUSED);
    return GST_STATE_CHANGE_FAILURE;
  }
  priv->end_of_stream.set_playing(true);
  return result;
}

GstStateChangeReturn playing_to_paused(GstTvBaseFilter* self) {
  self->priv->end_of_stream.set_playing(false);
  if (!run(self, GST_TV_BASE_FILTER_GET_CLASS(self)->pause))
    QEL_LOG_LINE(QEL_LOG_WARNING, "%s: pause failed", GST_OBJECT_NAME(self));
  return no_preroll(change_parent(self, GST_STATE_CHANGE_PLAYING_TO_PAUSED));
}

GstStateChangeReturn paused_to_ready(GstTvBaseFilter* self) {
  const auto result = deactivate(self);
  if (!run(self, GST_TV_BASE_FILTER_GET_CLASS(self)->stop))
    QEL_LOG_LINE(QEL_LOG_WARNING, "%s: stop failed", GST_OBJECT_NAME(self));
  undo_initiate(self);
  self->priv->feed.finish();
  return result;
}

struct Transition {
  GstStateChange transition;
  GstStateChangeReturn (*change)(GstTvBaseFilter*);
};
constexpr Transition kTransitions[] = {
    {GST_STATE_CHANGE_READY_TO_PAUSED, ready_to_paused},
    {GST_STATE_CHANGE_PAUSED_TO_PLAYING, paused_to_playing},
    {GST_STATE_CHANGE_PLAYING_TO_PAUSED, playing_to_paused},
    {GST_STATE_CHANGE_PAUSED_TO_READY, paused_to_ready},
};

GstStateChangeReturn change_state(GstElement* element, GstStateChange transition) {
  auto* self = GST_TV_BASE_FILTER(element);
  for (const Transition& row : kTransitions)
    if (row.transition == transition) return row.change(self);
  return change_parent(self, transition);
}

// --- Object ------------------------------------------------------------------

void dispose(GObject* object) {
  undo_initiate(GST_TV_BASE_FILTER(object));
  G_OBJECT_CLASS(g_parent_class)->dispose(object);
}

void finalize(GObject* object) {
  delete GST_TV_BASE_FILTER(object)->priv;
  G_OBJECT_CLASS(g_parent_class)->finalize(object);
}

void class_init(gpointer klass, gpointer) {
  g_parent_class = GST_ELEMENT_CLASS(g_type_class_peek_parent(klass));
  GstDebugCategory* category = nullptr;
  GST_DEBUG_CATEGORY_INIT(category, "qel", 0, "Platform library of the demultiplexer");
  G_OBJECT_CLASS(klass)->dispose = dispose;
  G_OBJECT_CLASS(klass)->finalize = finalize;
  GST_ELEMENT_CLASS(klass)->change_state = change_state;
}

/// `g_class` is the subclass; the object's own class pointer is this class's
/// still, which has no templates.
void instance_init(GTypeInstance* instance, gpointer g_class) {
  auto* self = reinterpret_cast<GstTvBaseFilter*>(instance);
  self->priv = new GstTvBaseFilterPrivate(GST_ELEMENT(self));
  add_sink_pad(self, GST_ELEMENT_CLASS(g_class));
  g_signal_connect(self, "notify::demux-id", G_CALLBACK(on_target_changed), nullptr);
  g_signal_connect(self, "notify::demux-type", G_CALLBACK(on_target_changed), nullptr);
}

}  // namespace

GType gst_tv_base_filter_get_type(void) {
  // Initialised once, whichever threads come first.
  static const GType type = g_type_register_static_simple(
      GST_TYPE_ELEMENT, g_intern_static_string("GstTvBaseFilter"), sizeof(GstTvBaseFilterClass),
      class_init, sizeof(GstTvBaseFilter), instance_init, G_TYPE_FLAG_ABSTRACT);
  return type;
}
