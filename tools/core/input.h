// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <string>

#include "tools/core/gst_ptr.h"

namespace tools {

/// Lets SIGINT and SIGTERM end inputs, and a closed pipe end writers, instead of
/// the process. Called once, first.
void catch_signals();
/// Whether one of the two has come.
bool interrupted();

/// Where a transport stream comes from: a file, "-" for standard input, or a URI
/// that a source element of GStreamer understands (udp://, http:// and so on).
class Input {
 public:
  /// Opens and looks at the beginning. Failure when it cannot be read, sends
  /// nothing for `patience` seconds, or is no transport stream.
  explicit Input(std::string location, double patience = 10);
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;

  /// The next piece of the stream; NULL at its end, after a signal, when nothing
  /// has come for `patience` seconds, and when `stop`, which is asked while nothing
  /// comes, says so. Failure when reading fails.
  BufferPtr next(const std::function<bool()>& stop = nullptr);

  /// Begins again: a file at its beginning, anything else with what is kept, the
  /// first 32 MiB until forget() is called.
  void rewind();
  void forget();

  [[nodiscard]] const std::string& location() const { return location_; }
  [[nodiscard]] bool is_live() const { return live_; }
  /// Whether rewind() begins at the beginning and loses nothing.
  [[nodiscard]] bool is_file() const { return file_; }
  [[nodiscard]] std::uint64_t size() const { return size_; }  // bytes, 0 when unknown
  /// 188, 192 or 204.
  [[nodiscard]] unsigned packet_size() const { return packet_size_; }
  /// Bytes before the first packet.
  [[nodiscard]] std::uint64_t junk() const { return junk_; }
  [[nodiscard]] bool keeps_all() const { return keeping_; }

 private:
  void open();
  BufferPtr pull(const std::function<bool()>& stop);
  void examine();
  void check_error();

  std::string location_;
  double patience_;
  bool live_ = false;
  bool file_ = false;
  std::uint64_t size_ = 0;
  unsigned packet_size_ = 0;
  std::uint64_t junk_ = 0;
  PipelinePtr pipeline_;
  ElementPtr sink_;
  // What was read of an input that cannot be read again, while it is kept.
  bool keeping_ = true;
  std::deque<BufferPtr> kept_;
  std::size_t kept_bytes_ = 0;
  std::size_t replayed_ = 0;  // of kept_, those that next() gave
};

}  // namespace tools
