// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <gst/gst.h>
#include <qel/dmx.h>
#include <qel/log.h>

#include <condition_variable>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "instance/instance.h"
#include "tests/support/process.h"

/// What the element's tests share: an element with the real platform beneath,
/// and ears on its trace, its log and its signals.
namespace vantrel::testing {

using test::eventually;
using test::growth_by;
using test::kPatience;
using test::open_descriptors;
using test::resident_bytes;
using test::within_limit;

/// A line of the trace without time and thread.
std::string call_of(const std::string& trace_line);

/// Records calls on nodes, and what the test notes, in the one order in which they
/// came. Nodes are numbered as they appear, so that it is seen which one is meant:
///
///     open("qel_demux0", 0x800) = #1
///     ioctl(#1<qel_demux0>, KWRX_DMX_STOP) = 0
///
/// One at a time.
class Trace {
 public:
  explicit Trace(bool reads = false);
  ~Trace();
  Trace(const Trace&) = delete;
  Trace& operator=(const Trace&) = delete;

  void note(const std::string& line);
  /// Lines since the last take.
  std::vector<std::string> take();
  /// Those of them that contain `part`.
  std::vector<std::string> take(const std::string& part);

 private:
  static void on_line(const char* line, void* self);

  std::mutex mutex_;  // guards the fields below
  std::vector<std::string> lines_;
  std::map<std::string, std::string> numbers_;  // by descriptor
};

/// Records log lines as "priority message", the prefix with the function and
/// the line number taken off. One at a time.
class Log {
 public:
  struct Line {
    int buffer;
    int priority;
    std::string tag;
    std::string function;
    std::string message;
  };

  /// The parts of a line as sinks get it.
  static Line parse(int buffer, int priority, const char* tag, const char* text);

  Log();
  ~Log();
  Log(const Log&) = delete;
  Log& operator=(const Log&) = delete;

  std::vector<Line> take();
  /// Those of the functions named, as "priority function: message" with PTR for
  /// addresses and N for descriptors; the system buffer's with "system " before.
  std::vector<std::string> take(const std::set<std::string>& functions);
  /// Whether a line with exactly that message came since the last take.
  bool has(const std::string& message);
  int count(const std::string& message);
  /// Waits for all these lines of the functions named, as take() gives them, and
  /// calls `meanwhile` now and then; gives one that does not come, or "".
  std::string missing(
      std::set<std::string> lines, const std::set<std::string>& functions,
      const std::function<void()>& meanwhile = [] {});

 private:
  static void on_line(int buffer, int priority, const char* tag, const char* text, void* self);

  std::mutex mutex_;
  std::vector<Line> lines_;  // guarded by mutex_
};

/// Fault rules for the time of its life.
class Faults {
 public:
  explicit Faults(const char* script);
  ~Faults();
  Faults(const Faults&) = delete;
  Faults& operator=(const Faults&) = delete;
};

/// One delivery of "section-upload", "pes-upload" or "temi-data".
struct Delivery {
  guint pid;
  guint table_id;
  std::string bytes;
  gpointer handle;
};

/// An element of its own, set to NULL and released at the end.
class Element {
 public:
  explicit Element(guint demux_type = DMX_TYPE_PVR_PLAYBACK, guint demux_id = 0);
  ~Element();
  Element(const Element&) = delete;
  Element& operator=(const Element&) = delete;

  [[nodiscard]] GstElement* get() const { return element_; }
  [[nodiscard]] GstVantrel* state() const { return reinterpret_cast<GstVantrel*>(element_); }

  /// Sets the state and expects it to be reached.
  void go(GstState state);

  template <typename Value>
  void set(const char* property, Value value) {
    g_object_set(element_, property, value, nullptr);
  }
  std::string get_string(const char* property);

  /// "add-filter" by table id.
  gpointer add(guint pid, guint table_id, bool check_version = false, bool check_crc = false,
               guint table_id_ex = 0);
  /// "add-filter" by a pattern; one that is missing is passed as NULL.
  using Pattern = std::optional<std::string>;
  gpointer add_pattern(guint pid, const Pattern& filter, const Pattern& mask, const Pattern& mode);
  void remove(gpointer handle);

  /// What the three signals delivered so far.
  std::vector<Delivery> deliveries();
  /// The bytes of them; of one PID, where one is given.
  std::vector<std::string> received(std::optional<guint> pid = std::nullopt);
  std::size_t delivered();
  /// Waits until so many were delivered in all; false after kPatience.
  bool wait_for(std::size_t count);
  /// Runs inside each emission, after it was recorded.
  void on_delivery(std::function<void(const Delivery&)> handler);

  /// Feeds the demux the element uses, on the input of its type.
  void feed(const std::string& packets);

 private:
  void record(Delivery delivery);
  static void on_section(GstElement*, guint pid, guint table_id, gpointer bytes, guint size,
                         gpointer handle, gpointer self);
  static void on_pes(GstElement*, guint pid, gpointer bytes, guint size, gpointer self);
  static void on_temi(GstElement*, guint size, gpointer bytes, gpointer self);

  GstElement* element_;
  const guint demux_id_;
  std::mutex mutex_;  // guards the fields below
  std::condition_variable arrived_;
  std::vector<Delivery> deliveries_;
  std::function<void(const Delivery&)> handler_;
  std::list<std::string> patterns_;  // what filters borrow
};

/// Open nodes of a demux.
int open_nodes(unsigned demux);

}  // namespace vantrel::testing
