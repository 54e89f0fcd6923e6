// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tests/element/decoder.h"

#include <gtest/gtest.h>

namespace vantrel::testing {
namespace {

std::string text_of(GstEvent* event) {
  const bool custom = GST_EVENT_TYPE(event) == GST_EVENT_CUSTOM_UPSTREAM ||
                      GST_EVENT_TYPE(event) == GST_EVENT_CUSTOM_DOWNSTREAM_OOB;
  if (!custom) return GST_EVENT_TYPE_NAME(event);
  const GstStructure* structure = gst_event_get_structure(event);
  if (structure == nullptr) return "no structure";
  g_autofree gchar* text = gst_structure_to_string(structure);
  return text;
}

GstEvent* custom_event(GstEventType type, const char* structure) {
  GstStructure* fields = gst_structure_from_string(structure, nullptr);
  EXPECT_NE(fields, nullptr) << structure;
  return gst_event_new_custom(type, fields);
}

GstStaticPadTemplate any_sink =
    GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS_ANY);

}  // namespace

Neighbour::Neighbour(GstPad* pad) : pad_(GST_PAD(gst_object_ref_sink(pad))) {
  gst_pad_set_element_private(pad_, this);
  gst_pad_set_event_function(pad_, on_event);
  gst_pad_set_active(pad_, TRUE);
}

Neighbour::~Neighbour() {
  gst_pad_set_active(pad_, FALSE);
  gst_object_unref(pad_);
}

std::vector<std::string> Neighbour::take() {
  std::lock_guard lock(mutex_);
  return std::exchange(events_, {});
}

bool Neighbour::send(GstEvent* event) { return gst_pad_push_event(pad_, event); }

void Neighbour::listen(std::function<void(const std::string&)> listener) {
  std::lock_guard lock(mutex_);
  listener_ = std::move(listener);
}

void Neighbour::answer(std::function<gboolean(GstEvent*)> function) {
  std::lock_guard lock(mutex_);
  answer_ = std::move(function);
}

gboolean Neighbour::on_event(GstPad* pad, GstObject*, GstEvent* event) {
  auto* self = static_cast<Neighbour*>(gst_pad_get_element_private(pad));
  std::function<gboolean(GstEvent*)> answer;
  // Sent by the framework when pads are linked.
  if (GST_EVENT_TYPE(event) != GST_EVENT_RECONFIGURE) {
    std::lock_guard lock(self->mutex_);
    self->events_.push_back(text_of(event));
    if (self->listener_) self->listener_(self->events_.back());
    answer = self->answer_;
  }
  const gboolean result = answer ? answer(event) : TRUE;
  gst_event_unref(event);
  return result;
}

Decoder::Decoder() : Neighbour(gst_pad_new_from_static_template(&any_sink, "sink")) {}

bool Decoder::link(GstElement* element, const char* name) {
  g_autoptr(GstPad) source = gst_element_get_static_pad(element, name);
  return source != nullptr && GST_PAD_LINK_SUCCESSFUL(gst_pad_link(source, pad()));
}

void Decoder::unlink() {
  g_autoptr(GstPad) source = gst_pad_get_peer(pad());
  if (source != nullptr) gst_pad_unlink(source, pad());
}

bool Decoder::send_custom(const char* structure) {
  return send(custom_event(GST_EVENT_CUSTOM_UPSTREAM, structure));
}

bool Decoder::seek(double rate) {
  return send(gst_event_new_seek(rate, GST_FORMAT_TIME, GST_SEEK_FLAG_FLUSH, GST_SEEK_TYPE_SET, 0,
                                 GST_SEEK_TYPE_NONE, 0));
}

Upstream::Upstream(GstElement* element) : Neighbour(gst_pad_new("src", GST_PAD_SRC)) {
  g_autoptr(GstPad) sink = gst_element_get_static_pad(element, "sink");
  EXPECT_TRUE(GST_PAD_LINK_SUCCESSFUL(gst_pad_link(pad(), sink)));
}

Upstream::~Upstream() {
  g_autoptr(GstPad) sink = gst_pad_get_peer(pad());
  if (sink != nullptr) gst_pad_unlink(pad(), sink);
}

bool Upstream::announce(const char* structure) {
  return send(custom_event(GST_EVENT_CUSTOM_DOWNSTREAM_OOB, structure));
}

GstFlowReturn Upstream::push(const std::string& bytes) {
  return gst_pad_push(pad(), gst_buffer_new_memdup(bytes.data(), bytes.size()));
}

void Upstream::start_of_stream() {
  GstEvent* start = gst_event_new_stream_start("file");
  gst_event_set_group_id(start, gst_util_group_id_next());
  EXPECT_TRUE(send(start));
  GstSegment segment;
  gst_segment_init(&segment, GST_FORMAT_BYTES);
  EXPECT_TRUE(send(gst_event_new_segment(&segment)));
}

}  // namespace vantrel::testing
