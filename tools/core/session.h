// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>

#include "tools/core/gst_ptr.h"
#include "tools/core/input.h"
#include "tools/core/progress.h"
#include "tools/core/stream_limit.h"

namespace tools {

/// A section filter as "add-filter" takes it.
struct SectionRequest {
  static constexpr unsigned kAny = 0x100;

  unsigned pid = 0;
  unsigned table_id = kAny;
  unsigned extension = 0;  // 0 for any
  bool changed_only = false;
  bool check_crc = false;
  // Instead of table id and extension, where `length` is not 0: up to 15 bytes
  // in section-header positions.
  std::array<std::uint8_t, 15> match = {};
  std::array<std::uint8_t, 15> mask = {};
  std::array<std::uint8_t, 15> mode = {};
  unsigned length = 0;
};

/// What becomes of an error of the pipeline.
enum class ErrorVerdict {
  kFail,  // it ends run() by a Failure
  kEnd,   // it is an end like another
  kGoOn,
};

/// The pipeline `appsrc ! vantrel` and an input that is fed into it.
class Session {
 public:
  enum class Mode { kPlay, kRecord };
  using SectionHandler = std::function<void(unsigned pid, std::string_view section)>;
  using PesHandler = std::function<void(unsigned pid, std::string_view packet)>;
  using Condition = std::function<bool()>;
  using Observer = std::function<void(std::span<const std::uint8_t>)>;
  using ErrorHandler = std::function<ErrorVerdict(GstMessage*)>;

  /// Files are played without loss as fast as they are read; what is live, and a
  /// file that is to be played `as_live`, goes through the front-end.
  Session(Input& input, Mode mode, bool as_live = false);
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  [[nodiscard]] GstElement* demux() const { return demux_; }
  [[nodiscard]] GstElement* pipeline() const { return pipeline_.get(); }

  // Handlers are set before prepare(). They run on reader threads of the element
  // and may call add_filter(); what they throw ends run().
  void on_section(SectionHandler handler) { section_handler_ = std::move(handler); }
  void on_pes(PesHandler handler) { pes_handler_ = std::move(handler); }
  /// Sees each piece of the stream before it is fed, in the feeding thread.
  void on_feed(Observer observer) { observer_ = std::move(observer); }

  /// Judges errors of the pipeline, in the feeding thread; without it they are
  /// failures.
  void on_error(ErrorHandler handler) { error_handler_ = std::move(handler); }

  /// Feeds no more than so much of the stream.
  void limit(std::optional<double> seconds);
  /// After a signal, or once run() has enough, what was fed is thrown away.
  void drop_rest() { drops_rest_ = true; }

  void add_filter(const SectionRequest& request);

  /// Readies the element and its nodes: PAUSED.
  void prepare();
  /// Feeds the input until it ends, `enough` says so, or a signal comes. Returns
  /// once all that was fed has been delivered. Failure when the pipeline fails.
  void run(Progress* progress, const Condition& enough = nullptr);
  /// Whether the limit was reached.
  [[nodiscard]] bool is_limited() const { return limit_->is_over(); }
  [[nodiscard]] std::uint64_t fed() const { return fed_; }

 private:
  static void section_uploaded(GstElement*, guint pid, guint table_id, gpointer bytes, guint size,
                               gpointer filter, gpointer self);
  static void pes_uploaded(GstElement*, guint pid, gpointer bytes, guint size, gpointer self);
  template <typename Handler>
  void deliver(const Handler& handler, unsigned pid, gpointer bytes, guint size);
  bool feed(BufferPtr buffer, const Condition& enough);
  bool wait_for_room(const Condition& enough);
  void drain(const Condition& enough);
  void take_message(GstClockTime wait);
  void take_error(GstMessage* message);
  void rethrow();

  Input& input_;
  GstElement* source_ = nullptr;  // the pipeline's
  GstElement* demux_ = nullptr;   // the pipeline's
  SectionHandler section_handler_;
  PesHandler pes_handler_;
  Observer observer_;
  ErrorHandler error_handler_;
  std::unique_ptr<StreamLimit> limit_;
  std::uint64_t fed_ = 0;
  bool ended_ = false;
  bool drops_rest_ = false;
  std::mutex mutex_;                    // guards the two below
  std::list<SectionRequest> requests_;  // the element uses the arrays where they stand
  std::exception_ptr thrown_;
  PipelinePtr pipeline_;  // last: its threads use all of the above
};

}  // namespace tools
