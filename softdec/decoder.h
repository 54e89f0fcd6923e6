// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <gst/gst.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "softdec/delegate.h"
#include "softdec/demux_link.h"
#include "softdec/pes_parser.h"
#include "softdec/port.h"
#include "softdec/timeline.h"
#include "softdec/unit_merge.h"
#include "softdec/unit_queue.h"

namespace softdec {

struct CapsUnref {
  void operator()(GstCaps* caps) const { gst_caps_unref(caps); }
};
using CapsPtr = std::unique_ptr<GstCaps, CapsUnref>;

/// A decoder without its GObject: the port of a receiver's decoder becomes
/// buffers of elementary stream.
///
/// Two threads. The reader waits on the port, cuts what it reads into PES packets
/// and puts them into the queue. The task of the source pad takes them out, gives
/// them running times and pushes. So the port is emptied while a sink downstream
/// waits for a picture's time.
///
///     Order of locks: io_mutex_ > setup_mutex_ > the queue's and the timeline's.
///     None is held while something is pushed or the demultiplexer's properties
///     are written; setup_mutex_ alone while they are read.
class Decoder : public Delegate, private Clocks {
 public:
  Decoder(GstElement* element, GstPad* sink, GstPad* source, const Kind& kind);
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;

  void set_device(const char* name) override;
  [[nodiscard]] std::string device() const override;
  [[nodiscard]] bool audio_lock() const override { return audio_lock_; }
  void start() override;
  bool play() override;
  void pause() override;
  void stop() override;
  bool activate_source(bool active) override;
  bool source_event(GstEvent* event) override;
  bool source_query(GstQuery* query) override;
  bool sink_event(GstEvent* event) override;
  void linked() override;

 private:
  /// A port with what is read from it.
  struct Source {
    PortRef port;
    PesParser parser;
    bool at_end = false;  // the last read found the end
  };

  struct Times {
    GstClockTime pts = GST_CLOCK_TIME_NONE;
    GstClockTime dts = GST_CLOCK_TIME_NONE;
  };

  // decoder.cpp: the two threads
  void read_loop();
  void read_ports(const PortRef& main, const PortRef& second);
  std::vector<Item> read(Source& source, const PortRef& expected);
  std::vector<Item> items_of(const Source& source, std::vector<PesUnit> units);
  std::vector<Item> items_of(std::vector<PesUnit> units);
  std::vector<Item> take_end(Source& source);
  void push_one();
  void push_unit(PesUnit unit);
  bool times_of(const PesUnit& unit, Times& times);
  bool is_early_sound(std::uint64_t stamp);
  void prepare_pad(const std::vector<std::uint8_t>& payload);
  CapsPtr caps_for(const std::vector<std::uint8_t>& payload);
  void push_stream_start();
  void push_segment();
  void push_end();
  void push_buffer(GstBuffer* buffer);

  // decoder_setup.cpp: which port, which demultiplexer
  bool attach();
  void join_timeline(const void* demux);
  [[nodiscard]] std::string device_for(const DemuxLink& demux) const;
  bool open_port(Source& source, const std::string& name);
  void close_ports();
  void announce();
  void announce_and_wait();
  [[nodiscard]] std::shared_ptr<Place> place() const;

  // decoder_events.cpp
  bool custom_event(GstEvent* event);
  bool on_flush(const GstStructure& fields);
  bool on_codec_info(const GstStructure& fields);
  bool on_decode_info(const GstStructure& fields);
  bool on_two_pids_start(const GstStructure& fields);
  bool on_two_pids_stop(const GstStructure& fields);
  bool on_audio_info(const GstStructure& fields);
  bool on_time_stamp(const GstStructure& fields);
  void on_stream_start();
  void on_caps(GstEvent* event);
  void begin_flush(GstEvent* event);
  void end_flush(GstEvent* event, bool from_zero);
  void drop_pending();
  void send_audio_lock(bool locked);

  // Clocks
  [[nodiscard]] std::optional<std::int64_t> running_time() const override;
  [[nodiscard]] std::uint64_t base_time() const override;
  [[nodiscard]] bool live() const override { return live_; }
  [[nodiscard]] std::optional<std::uint64_t> system_time() const override;

  GstElement* const element_;
  GstPad* const sink_;
  GstPad* const source_;
  const Kind& kind_;
  const bool video_;

  Wake wake_;
  UnitQueue queue_;
  std::thread reader_;

  /// Taken alone; its passing on orders the threads that name the decoder.
  std::mutex naming_mutex_;
  std::condition_variable named_;
  unsigned namings_asked_ = 0;  // naming_mutex_
  unsigned namings_done_ = 0;   // naming_mutex_

  mutable std::mutex setup_mutex_;
  std::string wanted_device_;     // setup_mutex_; the property
  std::string event_device_;      // setup_mutex_; from "video-decode-info"
  bool second_ = false;           // setup_mutex_; a second stream's decoder
  CapsPtr announced_;             // setup_mutex_; the demultiplexer's caps
  CapsPtr forced_;                // setup_mutex_; those of "video-decode-info"
  std::shared_ptr<Place> place_;  // setup_mutex_; never empty
  const void* demux_ = nullptr;   // setup_mutex_; whose it is, compared only

  mutable std::mutex io_mutex_;
  Source main_;              // io_mutex_
  Source second_pid_;        // io_mutex_; has a port while two PIDs make one stream
  UnitMerge merge_;          // io_mutex_
  bool has_data_ = false;    // io_mutex_; since the port was opened or flushed
  bool queued_end_ = false;  // io_mutex_; nothing was read since

  std::atomic<bool> running_{false};  // the reader goes on
  std::atomic<bool> playing_{false};
  std::atomic<bool> active_{false};          // the source pad is
  std::atomic<bool> announced_name_{false};  // since the link and the beginning of play
  std::atomic<bool> live_{false};
  std::atomic<unsigned> demux_id_{0};
  std::atomic<bool> upstream_ended_{false};
  std::atomic<bool> audio_lock_{false};
  std::atomic<std::int64_t> sound_from_{-1};  // 32 bits of a time stamp; -1 for none
  std::atomic<bool> needs_start_{true};       // stream-start is to be pushed
  std::atomic<bool> needs_segment_{true};

  std::vector<std::uint8_t> buffer_;  // the reader's alone
  // The task's alone.
  CapsPtr current_;
  bool discont_ = true;
  bool discarding_ = false;
};

extern const Kind kVideoDecoder;
extern const Kind kAudioDecoder;

}  // namespace softdec
