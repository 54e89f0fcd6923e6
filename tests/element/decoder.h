// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <gst/gst.h>

#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace vantrel::testing {

/// A decoder's side of a link: an active sink pad that notes the events it
/// gets, as "type" or "structure{field=value}".
class Decoder {
 public:
  Decoder();
  ~Decoder();
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;

  [[nodiscard]] GstPad* pad() const { return pad_; }

  /// Links to the element's pad of that name; false when there is none, or the
  /// link is refused.
  bool link(GstElement* element, const char* name);
  void unlink();

  /// Events since the last take.
  std::vector<std::string> take();
  /// Sends an event upstream; a custom one from a structure's text.
  bool send(GstEvent* event);
  bool send_custom(const char* structure);

  /// Is told of each event too, as take() would give it.
  void listen(std::function<void(const std::string&)> listener);
  /// Answer to events: FALSE refuses them.
  void answer(std::function<gboolean(GstEvent*)> function);

 private:
  static gboolean on_event(GstPad* pad, GstObject* parent, GstEvent* event);

  GstPad* pad_;
  std::mutex mutex_;  // guards the fields below
  std::vector<std::string> events_;
  std::function<void(const std::string&)> listener_;
  std::function<gboolean(GstEvent*)> answer_;
};

/// An upstream neighbour: notes the events that come up from the sink pad.
class Upstream {
 public:
  explicit Upstream(GstElement* element);
  ~Upstream();
  Upstream(const Upstream&) = delete;
  Upstream& operator=(const Upstream&) = delete;

  std::vector<std::string> take();
  bool send(GstEvent* event);
  /// An out-of-band custom event from a structure's text.
  bool announce(const char* structure);
  /// A buffer with these bytes.
  GstFlowReturn push(const std::string& bytes);
  /// Stream-start and a segment of bytes, which go before data.
  void start_of_stream();
  /// Is told of each event too, as take() would give it.
  void listen(std::function<void(const std::string&)> listener);

 private:
  static gboolean on_event(GstPad* pad, GstObject* parent, GstEvent* event);

  GstPad* pad_;
  std::mutex mutex_;  // guards the fields below
  std::vector<std::string> events_;
  std::function<void(const std::string&)> listener_;
};

}  // namespace vantrel::testing
