// SPDX-License-Identifier: LGPL-2.1-or-later
#include "demux/sticky_events.h"

#include <array>

#include "instance/log.h"

namespace vantrel {
namespace {

/// In the order in which pads take them.
constexpr auto kDelivered = std::to_array<GstEventType>(
    {GST_EVENT_STREAM_START, GST_EVENT_CAPS, GST_EVENT_SEGMENT, GST_EVENT_EOS});

/// What a pad is given under this name is sent again at every start-up.
GQuark caps_quark() {
  static const GQuark quark = g_quark_from_static_string("vantrel-caps");
  return quark;
}

/// Where an event comes to next: to the peer, and through the pads of a bin.
PadRef next_pad(GstPad* pad) {
  if (GST_PAD_IS_SRC(pad)) return PadRef::take(gst_pad_get_peer(pad));
  if (!GST_IS_PROXY_PAD(pad)) return {};
  return PadRef::take(GST_PAD(gst_proxy_pad_get_internal(GST_PROXY_PAD(pad))));
}

/// The pad at the other end, past those that bins put in between.
PadRef far_peer(GstPad* pad) {
  PadRef at = next_pad(pad);
  while (at && (GST_PAD_IS_SRC(at.get()) || GST_IS_PROXY_PAD(at.get()))) at = next_pad(at.get());
  return at;
}

bool has_stored(GstPad* pad, GstEventType type) {
  g_autoptr(GstEvent) event = gst_pad_get_sticky_event(pad, type, 0);
  return event != nullptr;
}

/// Of caps that a decoder does not take no push tells, and no buffers come that would.
void report_refused_caps(GstPad* pad) {
  const PadRef peer = far_peer(pad);
  if (!peer || !gst_pad_is_active(peer.get()) || has_stored(peer.get(), GST_EVENT_CAPS)) return;
  g_autoptr(GstCaps) caps = gst_pad_get_current_caps(pad);
  if (caps == nullptr) return;
  g_autofree gchar* text = gst_caps_to_string(caps);
  LOG_WARNING("%s: the decoder refuses %s", GST_PAD_NAME(pad), text);
}

/// Takes the event.
void push(GstPad* pad, GstEvent* event) {
  const bool is_caps = GST_EVENT_TYPE(event) == GST_EVENT_CAPS;
  gst_pad_push_event(pad, event);
  if (is_caps) report_refused_caps(pad);
}

/// Copies, since the pads in between drop an event that they have had already.
/// All are taken first: a stream-start takes the ones behind it off the pad.
void deliver_now(GstPad* pad) {
  const PadRef peer = far_peer(pad);
  if (!peer) return;
  std::array<GstEvent*, kDelivered.size()> missed{};
  for (std::size_t i = 0; i < kDelivered.size(); i++) {
    if (has_stored(peer.get(), kDelivered[i])) continue;
    g_autoptr(GstEvent) event = gst_pad_get_sticky_event(pad, kDelivered[i], 0);
    if (event != nullptr) missed[i] = gst_event_copy(event);
  }
  for (GstEvent* event : missed)
    if (event != nullptr) push(pad, event);
}

/// Marks the pad as one that a thread of the framework's delivers to; false when
/// it is marked already.
bool mark_waiting(GstPad* pad, bool waiting) {
  static const GQuark quark = g_quark_from_static_string("vantrel-waiting");
  const gpointer before = GINT_TO_POINTER(waiting ? FALSE : TRUE);
  const gpointer after = GINT_TO_POINTER(waiting ? TRUE : FALSE);
  return g_object_replace_qdata(G_OBJECT(pad), quark, before, after, nullptr, nullptr) != FALSE;
}

void push_stored(GstPad* pad, GstEventType type) {
  if (GstEvent* event = gst_pad_get_sticky_event(pad, type, 0)) gst_pad_push_event(pad, event);
}

/// Waits in the first push, which the unblocking or the end of the run ends.
/// What is stored may change until then, so it is looked at one by one.
void deliver_when_unblocked(GstElement*, gpointer data) {
  GstPad* pad = GST_PAD(data);
  push_stored(pad, GST_EVENT_STREAM_START);
  mark_waiting(pad, false);
  push_stored(pad, GST_EVENT_CAPS);
  deliver_now(pad);
}

void deliver_later(GstVantrel* self, GstPad* pad) {
  if (mark_waiting(pad, true))
    gst_element_call_async(as_element(self), deliver_when_unblocked, gst_object_ref(pad),
                           gst_object_unref);
}

/// Takes the event.
void send(GstVantrel* self, GstPad* pad, GstEvent* event) {
  if (!is_blocked(pad)) return push(pad, event);
  gst_pad_store_sticky_event(pad, event);
  gst_event_unref(event);
  deliver_later(self, pad);
}

/// Upstream's group, or one of the element's own while upstream names none.
guint group_id_of(GstVantrel* self) {
  g_autoptr(GstEvent) event = gst_pad_get_sticky_event(self->sinkpad, GST_EVENT_STREAM_START, 0);
  guint group_id = GST_GROUP_ID_INVALID;
  if (event != nullptr) gst_event_parse_group_id(event, &group_id);
  if (group_id != GST_GROUP_ID_INVALID) return group_id;
  guint own = self->group_id;
  if (own != GST_GROUP_ID_INVALID) return own;
  const guint fresh = gst_util_group_id_next();
  return self->group_id.compare_exchange_strong(own, fresh) ? fresh : own;
}

}  // namespace

bool is_blocked(GstPad* pad) {
  PadRef at = PadRef::share(pad);
  while (at && !gst_pad_is_blocked(at.get())) at = next_pad(at.get());
  return static_cast<bool>(at);
}

std::vector<PadRef> source_pads(GstVantrel* self) {
  std::vector<PadRef> pads;
  const auto collect = [](GstElement*, GstPad* pad, gpointer list) -> gboolean {
    static_cast<std::vector<PadRef>*>(list)->push_back(PadRef::share(pad));
    return TRUE;
  };
  gst_element_foreach_src_pad(as_element(self), collect, &pads);
  return pads;
}

void send_stream_start(GstVantrel* self, GstPad* pad) {
  g_autofree gchar* id = gst_pad_create_stream_id(pad, as_element(self), GST_PAD_NAME(pad));
  GstEvent* event = gst_event_new_stream_start(id);
  gst_event_set_group_id(event, group_id_of(self));
  send(self, pad, event);
}

void send_caps(GstVantrel* self, GstPad* pad, GstCaps* caps) {
  g_object_set_qdata_full(G_OBJECT(pad), caps_quark(), gst_caps_ref(caps),
                          [](gpointer kept) { gst_caps_unref(static_cast<GstCaps*>(kept)); });
  send(self, pad, gst_event_new_caps(caps));
}

void send_upstreams_position(GstVantrel* self, GstPad* pad) {
  for (const GstEventType type : {GST_EVENT_SEGMENT, GST_EVENT_EOS})
    if (GstEvent* event = gst_pad_get_sticky_event(self->sinkpad, type, 0)) send(self, pad, event);
}

void deliver_stored_events(GstVantrel* self, GstPad* pad) {
  if (is_blocked(pad))
    deliver_later(self, pad);
  else
    deliver_now(pad);
}

void announce_pads(GstVantrel* self) {
  self->group_id = GST_GROUP_ID_INVALID;
  for (const PadRef& pad : source_pads(self)) {
    gst_pad_set_active(pad.get(), TRUE);
    send_stream_start(self, pad.get());
    if (gpointer caps = g_object_get_qdata(G_OBJECT(pad.get()), caps_quark()))
      send_caps(self, pad.get(), static_cast<GstCaps*>(caps));
  }
}

void announce_stream_start(GstVantrel* self) {
  self->group_id = GST_GROUP_ID_INVALID;
  for (const PadRef& pad : source_pads(self)) {
    send_stream_start(self, pad.get());
    deliver_stored_events(self, pad.get());
  }
}

}  // namespace vantrel
