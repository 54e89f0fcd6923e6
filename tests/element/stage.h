// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/element/decoder.h"
#include "tests/element/harness.h"

namespace vantrel::testing {

/// Plugin, element, pad templates, properties and signals as the framework sees
/// them, one a line.
std::vector<std::string> describe_class();

/// Runs one command after another on an element, and writes down what the
/// calling thread logs and asks of nodes meanwhile, in one sequence.
///
///     new                       another element, as it is made
///     PROPERTY=VALUE            writes a property; NULL for no string
///     ?PROPERTY                 reads one
///     OPERATION                 a lifecycle operation or worker, without gst_vantrel_
///     state NAME                as an application sets it
///     link PAD, refuse PAD      to a decoder that takes events, or refuses them
///     unlink PAD                from its decoder
///     upstream                  links a neighbour to the sink pad
///     announce STRUCTURE        its out-of-band event
///     send PAD STRUCTURE        a decoder's custom event, or "latency"
///     seek PAD RATE             a decoder's seek
///     add PID TABLE EXTENSION VERSION CRC
///                               "add-filter" by table id, with checks or without
///     pattern PID FILTER MASK MODE
///                               the same by patterns in hexadecimal; "-" for none
///     remove NUMBER             "remove-filter" of the first, second, ... of them
///     hand-over PROPERTY        opens a node and writes its descriptor
///     fault RULE, fault         one more rule for nodes; none
///     lack WHAT                 a thread's name, semaphores or descriptors: not to
///                               be had until the next element
///     occupy NAME               gives the element a pad of that name
///     lose INDEX                takes a record out of the stream table, until the end
///     register                  the plugin
///     describe                  the class
///     show                      the element's flags, threads, pads and streams
///     release                   drops it
///
/// stage_streams.h has those that call functions on streams by themselves.
class Stage {
 public:
  Stage();
  ~Stage();
  Stage(const Stage&) = delete;
  Stage& operator=(const Stage&) = delete;

  /// Lines that came of it: log lines as `LEVEL function "message"`, level I2 for
  /// the system buffer; `> function` and `< function` for the debug lines
  /// "[PERF_CHECK][BEGIN]" and "[PERF_CHECK][END]", `<> function` for both with
  /// nothing in between; requests as the trace has
  /// them, events, results.
  std::vector<std::string> run(const std::string& command);

 private:
  using Command = void (Stage::*)(const std::string& argument);
  static const std::map<std::string, Command> kCommands;

  void make(const std::string&);
  void release(const std::string&);
  void change_state(const std::string& name);
  void link(const std::string& pad);
  void refuse(const std::string& pad);
  void unlink(const std::string& pad);
  void link_upstream(const std::string&);
  void announce(const std::string& structure);
  void send(const std::string& arguments);
  void seek(const std::string& arguments);
  std::function<void(const std::string&)> writer_of(const std::string& who);
  void add_filter(const std::string& arguments);
  void add_pattern(const std::string& arguments);
  void note_filter(gpointer handle);
  void remove_filter(const std::string& number);
  void hand_over(const std::string& property);
  void set_fault(const std::string& rule);
  void lack(const std::string& what);
  void occupy(const std::string& name);
  void lose_record(const std::string& index);
  void show(const std::string&);
  void register_plugin(const std::string&);
  void describe(const std::string&);
  void set_property(const std::string& name, const std::string& value);
  void get_property(const std::string& name);
  bool call_operation(const std::string& name);
  void write(const std::string& line) { lines_.push_back(line); }
  void write_end(const std::string& function);

  static void on_log(int buffer, int priority, const char* tag, const char* text, void* self);
  static void on_trace(const char* line, void* self);
  static void on_no_more_pads(GstElement*, gpointer self);
  static void on_pad_added(GstElement*, GstPad* pad, gpointer self);
  static void on_pad_removed(GstElement*, GstPad* pad, gpointer self);

  const std::thread::id thread_ = std::this_thread::get_id();
  std::vector<std::string> lines_;
  std::string faults_;
  GstVantrel* element_ = nullptr;
  std::map<guint, StreamPtr> lost_;
  std::map<std::string, std::unique_ptr<Decoder>> decoders_;
  std::unique_ptr<Upstream> upstream_;
  std::vector<gpointer> filters_;
  std::list<std::string> patterns_;  // what filters borrow
};

}  // namespace vantrel::testing
