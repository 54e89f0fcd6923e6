// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tests/element/harness.h"

#include <gtest/gtest.h>
#include <qel/receiver.h>
#include <qel/trace.h>

#include <algorithm>
#include <regex>

#include "plugin/gstvantrel.h"
#include "tests/support/test_node.h"

namespace vantrel::testing {

// Trace

std::string call_of(const std::string& trace_line) {
  static const std::regex kHead(R"(^\s*[0-9.]+ [0-9]+ )");
  return std::regex_replace(trace_line, kHead, "");
}

Trace::Trace(bool reads) { qel_trace_set_callback(on_line, this, reads); }
Trace::~Trace() { qel_trace_set_callback(nullptr, nullptr, 0); }

void Trace::on_line(const char* line, void* self) {
  static const std::regex kNode(R"(^(ioctl\(|read\(|open.* = |close.*, )([0-9]+)(.*)$)");
  auto* trace = static_cast<Trace*>(self);
  std::string call = call_of(line);
  std::lock_guard lock(trace->mutex_);
  if (std::smatch match; std::regex_match(call, match, kNode)) {
    std::string& number = trace->numbers_[match[2]];
    if (number.empty()) number = "#" + std::to_string(trace->numbers_.size());
    call = match[1].str() + number + match[3].str();
  }
  trace->lines_.push_back(std::move(call));
}

void Trace::note(const std::string& line) {
  std::lock_guard lock(mutex_);
  lines_.push_back(line);
}

std::vector<std::string> Trace::take() {
  std::lock_guard lock(mutex_);
  return std::exchange(lines_, {});
}

std::vector<std::string> Trace::take(const std::string& part) {
  std::vector<std::string> lines = take();
  std::erase_if(lines, [&](const std::string& line) { return line.find(part) == line.npos; });
  return lines;
}

// Log

Log::Log() { qel_log_set_sink(on_line, this); }
Log::~Log() { qel_log_set_sink(nullptr, nullptr); }

Log::Line Log::parse(int buffer, int priority, const char* tag, const char* text) {
  static const std::regex kPrefix(R"(^(\w+): (\w+)\((\d+)\) > )");
  std::cmatch match;
  Line line{buffer, priority, tag, "", text};
  if (std::regex_search(text, match, kPrefix)) {
    line.function = match[2];
    line.message = text + match.length();
  }
  return line;
}

void Log::on_line(int buffer, int priority, const char* tag, const char* text, void* self) {
  Line line = parse(buffer, priority, tag, text);
  auto* log = static_cast<Log*>(self);
  std::lock_guard lock(log->mutex_);
  log->lines_.push_back(std::move(line));
}

std::vector<Log::Line> Log::take() {
  std::lock_guard lock(mutex_);
  return std::exchange(lines_, {});
}

std::vector<std::string> Log::take(const std::set<std::string>& functions) {
  static const std::regex kAddress("0x[0-9a-f]+");
  static const std::regex kDescriptor("(fd:? )[0-9]+");
  std::vector<std::string> texts;
  for (const Line& line : take()) {
    if (!functions.contains(line.function)) continue;
    std::string text = std::to_string(line.priority) + " " + line.function + ": " + line.message;
    text = std::regex_replace(text, kAddress, "PTR");
    texts.push_back((line.buffer == QEL_LOG_BUFFER_SYSTEM ? "system " : "") +
                    std::regex_replace(text, kDescriptor, "$1N"));
  }
  return texts;
}

std::string Log::missing(std::set<std::string> lines, const std::set<std::string>& functions,
                         const std::function<void()>& meanwhile) {
  eventually([&] {
    meanwhile();
    for (const std::string& line : take(functions)) lines.erase(line);
    return lines.empty();
  });
  return lines.empty() ? "" : *lines.begin();
}

int Log::count(const std::string& message) {
  std::lock_guard lock(mutex_);
  return static_cast<int>(std::count_if(lines_.begin(), lines_.end(),
                                        [&](const Line& line) { return line.message == message; }));
}

bool Log::has(const std::string& message) { return count(message) != 0; }

// Faults

Faults::Faults(const char* script) { EXPECT_EQ(qel_faults_set(script), 0) << script; }
Faults::~Faults() { qel_faults_set(nullptr); }

// Element

Element::Element(guint demux_type, guint demux_id)
    : element_(GST_ELEMENT(gst_object_ref_sink(g_object_new(
          gst_vantrel_get_type(), "demux-type", demux_type, "demux-id", demux_id, nullptr)))),
      demux_id_(demux_id) {
  g_signal_connect(element_, "section-upload", G_CALLBACK(on_section), this);
  g_signal_connect(element_, "pes-upload", G_CALLBACK(on_pes), this);
  g_signal_connect(element_, "temi-data", G_CALLBACK(on_temi), this);
}

Element::~Element() {
  gst_element_set_state(element_, GST_STATE_NULL);
  gst_object_unref(element_);
  // No test sees what another one left half assembled.
  test::flush(demux_id_);
}

void Element::go(GstState state) {
  const GstStateChangeReturn result = gst_element_set_state(element_, state);
  EXPECT_TRUE(result == GST_STATE_CHANGE_SUCCESS || result == GST_STATE_CHANGE_NO_PREROLL)
      << gst_element_state_get_name(state);
}

std::string Element::get_string(const char* property) {
  g_autofree gchar* text = nullptr;
  g_object_get(element_, property, &text, nullptr);
  return text != nullptr ? text : "(null)";
}

gpointer Element::add(guint pid, guint table_id, bool check_version, bool check_crc,
                      guint table_id_ex) {
  gpointer handle = nullptr;
  g_signal_emit_by_name(element_, "add-filter", pid, table_id, table_id_ex, nullptr, nullptr, 0U,
                        gboolean{check_version}, gboolean{check_crc}, nullptr, &handle);
  return handle;
}

gpointer Element::add_pattern(guint pid, const Pattern& filter, const Pattern& mask,
                              const Pattern& mode) {
  const auto keep = [this](const Pattern& bytes) -> gpointer {
    return bytes ? patterns_.emplace_back(*bytes).data() : nullptr;
  };
  const auto size = static_cast<guint>((filter ? filter : mask)->size());
  gpointer handle = nullptr;
  g_signal_emit_by_name(element_, "add-filter", pid, 0U, 0U, keep(mask), keep(filter), size, FALSE,
                        FALSE, keep(mode), &handle);
  return handle;
}

void Element::remove(gpointer handle) { g_signal_emit_by_name(element_, "remove-filter", handle); }

std::vector<Delivery> Element::deliveries() {
  std::lock_guard lock(mutex_);
  return deliveries_;
}

std::vector<std::string> Element::received(std::optional<guint> pid) {
  std::vector<std::string> bytes;
  for (const Delivery& delivery : deliveries())
    if (!pid || delivery.pid == *pid) bytes.push_back(delivery.bytes);
  return bytes;
}

std::size_t Element::delivered() {
  std::lock_guard lock(mutex_);
  return deliveries_.size();
}

bool Element::wait_for(std::size_t count) {
  std::unique_lock lock(mutex_);
  return arrived_.wait_for(lock, kPatience, [&] { return deliveries_.size() >= count; });
}

void Element::on_delivery(std::function<void(const Delivery&)> handler) {
  std::lock_guard lock(mutex_);
  handler_ = std::move(handler);
}

void Element::record(Delivery delivery) {
  std::function<void(const Delivery&)> handler;
  {
    std::lock_guard lock(mutex_);
    deliveries_.push_back(delivery);
    handler = handler_;
    arrived_.notify_all();
  }
  if (handler) handler(delivery);
}

void Element::on_section(GstElement*, guint pid, guint table_id, gpointer bytes, guint size,
                         gpointer handle, gpointer self) {
  static_cast<Element*>(self)->record(
      {pid, table_id, std::string(static_cast<char*>(bytes), size), handle});
}

void Element::on_pes(GstElement*, guint pid, gpointer bytes, guint size, gpointer self) {
  static_cast<Element*>(self)->record(
      {pid, 0, std::string(static_cast<char*>(bytes), size), nullptr});
}

void Element::on_temi(GstElement*, guint size, gpointer bytes, gpointer self) {
  static_cast<Element*>(self)->record(
      {0, 0, std::string(static_cast<char*>(bytes), size), nullptr});
}

void Element::feed(const std::string& packets) {
  guint demux_type = 0;
  guint demux_id = 0;
  g_object_get(element_, "demux-type", &demux_type, "demux-id", &demux_id, nullptr);
  const bool front_end = demux_type == DMX_TYPE_LIVE || demux_type == DMX_TYPE_DTV_RECORD;
  EXPECT_EQ(qel_receiver_feed(demux_id, front_end ? DMX_IN_FRONTEND : DMX_IN_DVR, packets.data(),
                              packets.size()),
            0);
}

int open_nodes(unsigned demux) {
  return qel_receiver_foreach_node(
      demux, [](const qel_node_counters*, void*) {}, nullptr);
}

}  // namespace vantrel::testing
