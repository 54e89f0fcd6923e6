// SPDX-License-Identifier: LGPL-2.1-or-later
#include "softdec/demux_link.h"

#include <fcntl.h>
#include <qel/device.h>
#include <qel/dmx.h>

#include <algorithm>

namespace softdec {
namespace {

constexpr guint kLive = 0;
constexpr guint kLiveRecord = 2;

using PadPtr = std::unique_ptr<GstPad, ObjectUnref>;

PadPtr far_peer(GstPad* pad) {
  PadPtr peer(gst_pad_get_peer(pad));
  while (peer != nullptr && GST_IS_PROXY_PAD(peer.get())) {
    const PadPtr inner(GST_PAD(gst_proxy_pad_get_internal(GST_PROXY_PAD(peer.get()))));
    peer.reset(inner != nullptr ? gst_pad_get_peer(inner.get()) : nullptr);
  }
  return peer;
}

GParamSpec* property_of(GstElement* element, const char* name) {
  return g_object_class_find_property(G_OBJECT_GET_CLASS(element), name);
}

}  // namespace

DemuxLink DemuxLink::across(GstPad* sink_pad) {
  DemuxLink link;
  const PadPtr peer = far_peer(sink_pad);
  if (peer == nullptr) return link;
  link.element_.reset(gst_pad_get_parent_element(peer.get()));
  if (link.element_ == nullptr) return link;
  if (property_of(link.element_.get(), "demux-type") == nullptr) link.element_.reset();
  link.pad_name_ = GST_PAD_NAME(peer.get());
  return link;
}

bool DemuxLink::live() const {
  const guint type = number("demux-type");
  return type == kLive || type == kLiveRecord;
}

guint DemuxLink::number(const char* property) const {
  if (property_of(element_.get(), property) == nullptr) return 0;
  g_auto(GValue) value = G_VALUE_INIT;
  g_value_init(&value, G_TYPE_UINT);
  g_object_get_property(G_OBJECT(element_.get()), property, &value);
  return g_value_get_uint(&value);
}

std::string DemuxLink::text(const char* property) const {
  if (property_of(element_.get(), property) == nullptr) return {};
  g_autofree gchar* value = nullptr;
  g_object_get(element_.get(), property, &value, nullptr);
  return value != nullptr ? value : "";
}

/// A node of its own each time: an idle one that no filter was set on holds up
/// the first data of a recording.
std::optional<std::uint64_t> system_time_of(unsigned demux) {
  const std::string name = "qel_demux" + std::to_string(demux);
  const int fd = qel_device_open(name.c_str(), O_RDWR | O_NONBLOCK);
  if (fd < 0) return std::nullopt;
  dmx_stc stc{};
  const int result = qel_device_ioctl(fd, KWRX_DMX_GET_STC, &stc);
  qel_device_close(name.c_str(), fd);
  if (result < 0 || stc.base == 0) return std::nullopt;
  return stc.stc / stc.base & ((std::uint64_t{1} << 33) - 1);
}

}  // namespace softdec
