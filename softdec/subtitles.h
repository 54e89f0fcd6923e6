// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <gst/gst.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "softdec/delegate.h"
#include "softdec/demux_link.h"
#include "softdec/timeline.h"
#include "softdec/unit_queue.h"

namespace softdec {

/// DVB subtitles as buffers: what the demultiplexer hands to applications by
/// "pes-upload" gets the running times that the decoders of picture and sound
/// agreed on.
///
/// Two threads. The demultiplexer's PES reader puts packets into the queue and
/// never waits there; the task of the source pad pushes them, ahead of the
/// pictures that they belong to.
class Subtitles : public Delegate {
 public:
  Subtitles(GstElement* element, GstPad* sink, GstPad* source);
  ~Subtitles() override { disconnect(); }
  Subtitles(const Subtitles&) = delete;
  Subtitles& operator=(const Subtitles&) = delete;

  void set_device(const char*) override {}
  [[nodiscard]] std::string device() const override { return {}; }
  void start() override { attach(); }
  bool play() override;
  void pause() override {}
  void stop() override;
  bool activate_source(bool active) override;
  bool source_event(GstEvent* event) override;
  bool source_query(GstQuery* query) override;
  bool sink_event(GstEvent* event) override;
  void linked() override {}

 private:
  using QueueRef = std::shared_ptr<UnitQueue>;

  static void on_pes(GstElement*, guint pid, gpointer bytes, guint size, gpointer queue);
  void attach();
  void disconnect();
  void push_one();
  void push_unit(const PesUnit& unit);
  void prepare_pad();
  [[nodiscard]] std::shared_ptr<Timeline> timeline() const;

  GstElement* const element_;
  GstPad* const sink_;
  GstPad* const source_;
  const QueueRef queue_;  // a handler that still runs keeps it

  mutable std::mutex mutex_;  // guards the next three
  ElementRef demux_;          // whose signal is connected
  gulong handler_ = 0;
  std::shared_ptr<Timeline> timeline_;  // demux_'s, or nullptr

  std::atomic<bool> cancelled_{true};  // the task is to wait for nothing
  std::atomic<bool> live_{false};
  std::atomic<bool> needs_start_{true};
};

extern const Kind kSubtitles;

}  // namespace softdec
