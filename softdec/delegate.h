// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <gst/gst.h>

#include <memory>
#include <string>

namespace softdec {

/// What an element of this plugin does; its GObject is a shell around it. Called
/// by the shell as the framework calls the element and its pads.
class Delegate {
 public:
  virtual ~Delegate() = default;

  // Properties.
  /// The port to read; nullptr for the one that the demultiplexer's stream goes to.
  virtual void set_device(const char* name) = 0;
  /// The port that is open, or empty.
  [[nodiscard]] virtual std::string device() const = 0;
  [[nodiscard]] virtual bool audio_lock() const { return false; }

  // State changes, in their order.
  virtual void start() = 0;
  /// False, and an error posted, when it cannot.
  virtual bool play() = 0;
  virtual void pause() = 0;
  virtual void stop() = 0;

  // Source pad. Takes the event.
  virtual bool activate_source(bool active) = 0;
  virtual bool source_event(GstEvent* event) = 0;
  virtual bool source_query(GstQuery* query) = 0;

  // Sink pad. Takes the event.
  virtual bool sink_event(GstEvent* event) = 0;
  virtual void linked() = 0;
};

/// One element: what its class says, and who makes its delegate.
struct Kind {
  const char* element;
  const char* type_name;
  const char* long_name;
  const char* klass;
  const char* description;
  const char* sink_types;
  const char* source_types;
  std::unique_ptr<Delegate> (*make)(GstElement* element, GstPad* sink, GstPad* source,
                                    const Kind& kind);
};

}  // namespace softdec
