// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <gst/gst.h>

#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace vantrel::testing {

/// What stands beside the element: an active pad that notes the events it gets,
/// as "type" or "structure{field=value}".
class Neighbour {
 public:
  Neighbour(const Neighbour&) = delete;
  Neighbour& operator=(const Neighbour&) = delete;

  [[nodiscard]] GstPad* pad() const { return pad_; }

  /// Events since the last take.
  std::vector<std::string> take();
  bool send(GstEvent* event);
  /// Is told of each event too, as take() would give it.
  void listen(std::function<void(const std::string&)> listener);
  /// Answer to events: FALSE refuses them.
  void answer(std::function<gboolean(GstEvent*)> function);

 protected:
  /// Owns the pad.
  explicit Neighbour(GstPad* pad);
  ~Neighbour();

 private:
  static gboolean on_event(GstPad* pad, GstObject* parent, GstEvent* event);

  GstPad* pad_;
  std::mutex mutex_;  // guards the fields below
  std::vector<std::string> events_;
  std::function<void(const std::string&)> listener_;
  std::function<gboolean(GstEvent*)> answer_;
};

/// A decoder's side of a link.
class Decoder : public Neighbour {
 public:
  Decoder();
  ~Decoder() { unlink(); }

  /// Links to the element's pad of that name; false when there is none, or the
  /// link is refused.
  bool link(GstElement* element, const char* name);
  void unlink();
  /// Sends a custom event upstream, from a structure's text.
  bool send_custom(const char* structure);
  /// Sends a seek to the beginning.
  bool seek(double rate = 1.0);
};

/// An upstream neighbour on the sink pad.
class Upstream : public Neighbour {
 public:
  explicit Upstream(GstElement* element);
  ~Upstream();

  /// An out-of-band custom event from a structure's text.
  bool announce(const char* structure);
  /// A buffer with these bytes.
  GstFlowReturn push(const std::string& bytes);
  /// Stream-start and a segment of bytes, which go before data.
  void start_of_stream();
};

}  // namespace vantrel::testing
