// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <gst/gst.h>

#include <atomic>
#include <chrono>
#include <list>
#include <optional>
#include <string>

#include "tools/core/gst_ptr.h"
#include "tools/core/psi.h"
#include "tools/core/session.h"

namespace tools {

/// What is shown of a service; the programme's, nullptr for what is left out.
struct Shown {
  const StreamInfo* video = nullptr;
  const StreamInfo* audio = nullptr;
  const StreamInfo* subtitle = nullptr;
};

/// Window and loudspeaker, as far as the machine has them.
struct Outputs {
  /// Opens what `shown` needs. Failure where there is no display for a picture, or
  /// nothing at all for a service without one; no sound beside a picture is said
  /// on standard error.
  explicit Outputs(const Shown& shown);

  PipelinePtr video;
  PipelinePtr audio;
};

/// Decoders behind a session's demultiplexer, and outputs behind them. Stops the
/// session's pipeline when it goes.
class Player {
 public:
  Player(Session& session, const Shown& shown, const Outputs& outputs);
  ~Player();
  Player(const Player&) = delete;
  Player& operator=(const Player&) = delete;

  /// Pictures that came to the output.
  [[nodiscard]] unsigned pictures() const { return pictures_; }
  /// Seconds of sound that came there.
  [[nodiscard]] double sound() const { return static_cast<double>(sound_) / GST_SECOND; }
  /// Seconds of the monotonic clock at the first picture.
  [[nodiscard]] std::optional<double> first_picture() const;
  [[nodiscard]] bool is_closed() const { return closed_; }

 private:
  /// From a decoder port to an output.
  struct Branch {
    GstElement* elements;  // the pipeline's
    GstElement* port;      // theirs
    GstElement* output;    // the pipeline's
  };

  static void on_pad(GstElement* demux, GstPad* pad, gpointer pipeline);
  static GstPadProbeReturn on_end(GstPad* pad, GstPadProbeInfo* info, gpointer branch);
  static GstPadProbeReturn on_picture(GstPad* pad, GstPadProbeInfo* info, gpointer self);
  static GstPadProbeReturn on_sound(GstPad* pad, GstPadProbeInfo* info, gpointer self);
  void add(const std::string& elements, const char* port, const PipelinePtr& output,
           GstPadProbeCallback count);
  ErrorVerdict on_error(GstMessage* message);

  GstElement* pipeline_;
  std::list<Branch> branches_;
  std::atomic<unsigned> pictures_{0};
  std::atomic<std::uint64_t> sound_{0};         // nanoseconds
  std::atomic<std::int64_t> first_picture_{0};  // nanoseconds, monotonic
  bool closed_ = false;
};

}  // namespace tools
