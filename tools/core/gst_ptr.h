// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <gst/gst.h>

#include <memory>
#include <string>

namespace tools {

struct GstUnref {
  void operator()(GstBuffer* buffer) const { gst_buffer_unref(buffer); }
  void operator()(GstMessage* message) const { gst_message_unref(message); }
  void operator()(GstElement* element) const { gst_object_unref(element); }
};

/// Stops a pipeline before it goes.
struct PipelineStop {
  void operator()(GstElement* pipeline) const {
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(pipeline);
  }
};

using BufferPtr = std::unique_ptr<GstBuffer, GstUnref>;
using MessagePtr = std::unique_ptr<GstMessage, GstUnref>;
using ElementPtr = std::unique_ptr<GstElement, GstUnref>;
using PipelinePtr = std::unique_ptr<GstElement, PipelineStop>;

/// Bytes of a buffer for as long as this lives.
class MappedBuffer {
 public:
  explicit MappedBuffer(GstBuffer* buffer) : buffer_(buffer) {
    if (!gst_buffer_map(buffer, &map_, GST_MAP_READ)) map_ = {};
  }
  ~MappedBuffer() {
    if (map_.data != nullptr) gst_buffer_unmap(buffer_, &map_);
  }
  MappedBuffer(const MappedBuffer&) = delete;
  MappedBuffer& operator=(const MappedBuffer&) = delete;

  [[nodiscard]] const guint8* data() const { return map_.data; }
  [[nodiscard]] gsize size() const { return map_.size; }

 private:
  GstBuffer* buffer_;
  GstMapInfo map_ = {};
};

/// The text of an error message of a pipeline.
inline std::string error_text(GstMessage* message) {
  g_autoptr(GError) error = nullptr;
  gst_message_parse_error(message, &error, nullptr);
  return error->message;
}

}  // namespace tools
