// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace vantrel::testing {

/// Calls on nodes, and what the test notes, in the one order in which they came.
/// Nodes are numbered as they appear, so that it is seen which one is meant:
///
///     open("qel_demux0", 0x800) = #1
///     ioctl(#1<qel_demux0>, KWRX_DMX_STOP) = 0
///
/// One at a time, and no Trace beside it.
class Journal {
 public:
  Journal();
  ~Journal();
  Journal(const Journal&) = delete;
  Journal& operator=(const Journal&) = delete;

  void note(const std::string& line);
  /// Lines since the last take.
  std::vector<std::string> take();

 private:
  static void on_call(const char* line, void* self);

  std::mutex mutex_;  // guards the fields below
  std::vector<std::string> lines_;
  std::map<std::string, std::string> numbers_;  // by descriptor
};

}  // namespace vantrel::testing
