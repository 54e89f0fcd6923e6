// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <gst/gst.h>
#include <gtest/gtest.h>
#include <qel/base_filter.h>

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "tests/support/process.h"
#include "tests/support/test_node.h"

namespace vantrel::test {

using stream::Bytes;

inline Bytes null_packets(std::size_t count) { return stream::Multiplex().null_packets(count); }

/// What the operations of a TestFilter do, and what they were.
class Script {
 public:
  /// The operation of that name returns FALSE from now on.
  void fail(const std::string& operation) { results_[operation] = false; }
  void heal(const std::string& operation) { results_.erase(operation); }
  /// Called in each operation; not changed while the element runs.
  std::function<void(const std::string&)> hook;
  /// Called once, when a property has been read.
  std::function<void()> reading;

  gboolean run(const char* operation);
  /// The operations since the last call, separated by spaces.
  std::string take();

 private:
  std::mutex mutex_;
  std::string operations_;               // guarded by mutex_
  std::map<std::string, bool> results_;  // changed only while the element rests
};

/// An element of the base class with the properties "demux-id" and
/// "demux-type" that notes the operations in its script. `has_sink` chooses
/// between a class with the template "sink" and one without.
GstElement* new_test_filter(Script& script, bool has_sink = true);

/// An active source pad of the element, of which an activation may fail.
GstPad* add_source_pad(GstElement* element, bool can_be_activated = true);

}  // namespace vantrel::test
