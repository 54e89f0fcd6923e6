// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <gst/gst.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace softdec {

struct ObjectUnref {
  void operator()(gpointer object) const { gst_object_unref(object); }
};
using ElementRef = std::unique_ptr<GstElement, ObjectUnref>;

/// The demultiplexer at the other end of a sink pad, past the pads of bins, seen
/// through its properties. Reading them takes no lock that an application's
/// handlers may hold.
class DemuxLink {
 public:
  /// Looks across the link; empty where the peer is no demultiplexer.
  static DemuxLink across(GstPad* sink_pad);

  explicit operator bool() const { return element_ != nullptr; }
  [[nodiscard]] GstElement* element() const { return element_.get(); }
  /// Name of its source pad.
  [[nodiscard]] const std::string& pad_name() const { return pad_name_; }

  [[nodiscard]] bool live() const;
  [[nodiscard]] guint number(const char* property) const;
  [[nodiscard]] std::string text(const char* property) const;

 private:
  ElementRef element_;
  std::string pad_name_;
};

/// The system time clock of a demux in 90 kHz; none before its first PCR.
std::optional<std::uint64_t> system_time_of(unsigned demux);

}  // namespace softdec
