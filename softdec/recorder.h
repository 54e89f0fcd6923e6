// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

#include "softdec/delegate.h"
#include "softdec/demux_link.h"
#include "softdec/port.h"

namespace softdec {

/// The record node of a demux as transport stream. The task of the source pad
/// reads and pushes; the node's own buffer is the queue.
class Recorder : public Delegate {
 public:
  Recorder(GstElement* element, GstPad* sink, GstPad* source);
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  void set_device(const char* name) override;
  [[nodiscard]] std::string device() const override;
  void start() override;
  bool play() override { return attach(); }
  void pause() override {}
  void stop() override;
  bool activate_source(bool active) override;
  bool source_event(GstEvent* event) override;
  bool source_query(GstQuery* query) override;
  bool sink_event(GstEvent* event) override;
  void linked() override;

 private:
  bool attach();
  bool open_port(const std::string& name);
  void begin_flush(GstEvent* event);
  void end_flush(GstEvent* event);
  void run_once();
  std::size_t read_port(const PortRef& port, bool* ends);
  void push_packets(std::size_t size);
  void push_end();
  void prepare_pad();

  GstElement* const element_;
  GstPad* const sink_;
  GstPad* const source_;

  Wake wake_;
  mutable std::mutex mutex_;
  std::string wanted_device_;         // mutex_
  PortRef port_;                      // mutex_
  std::vector<std::uint8_t> buffer_;  // mutex_; read into
  std::size_t kept_ = 0;              // mutex_; bytes of a packet begun at its front
  bool has_data_ = false;             // mutex_; since the node was opened or flushed
  bool at_end_ = false;               // mutex_; the last read found the end
  bool told_end_ = false;             // mutex_; which was told downstream
  bool opens_ = false;                // mutex_; between start() and stop()

  std::atomic<bool> stopping_{true};  // the task is to pause
  std::atomic<bool> live_{false};
  std::atomic<bool> upstream_ended_{false};
  std::atomic<bool> needs_start_{true};
  std::atomic<bool> needs_segment_{true};
  std::atomic<bool> discont_{true};
};

extern const Kind kRecorder;

}  // namespace softdec
