// SPDX-License-Identifier: LGPL-2.1-or-later
#include <algorithm>
#include <cstdint>
#include <map>
#include <vector>

#include "tools/report/format.h"
#include "tools/report/names.h"
#include "tools/report/sections.h"

namespace report {
namespace {

constexpr std::int64_t kHour = 3600;
/// The grid shows a day; the list below it shows all.
constexpr std::int64_t kLongest = 24 * kHour;
constexpr double kPixelsPerSecond = 5.0 / 60;
constexpr double kNameWidth = 180;

/// A service and its events by their begin.
struct Row {
  std::string name;
  bool actual;
  std::map<std::int64_t, tools::Event> events;
};

struct Span {
  std::int64_t begin = 0;
  std::int64_t end = 0;
};

std::string service_name(const Report& report, const tools::ServiceKey& key, bool actual) {
  const auto& programmes = report.psi->programmes();
  const auto found = programmes.find(key.service_id);
  if (actual && found != programmes.end()) return name_of(found->second);
  return std::to_string(key.original_network_id) + "/" + std::to_string(key.transport_stream_id) +
         "/" + std::to_string(key.service_id);
}

/// This stream's services first.
std::vector<Row> rows_of(const Report& report) {
  std::vector<Row> rows;
  for (const auto& [key, guide] : report.guides) {
    Row row{service_name(report, key, guide.actual), guide.actual, {}};
    for (const tools::Event& event : guide.schedule) row.events[event.start] = event;
    for (const auto& event : {guide.present, guide.following})
      if (event) row.events[event->start] = *event;
    row.events.erase(0);
    if (!row.events.empty()) rows.push_back(std::move(row));
  }
  std::stable_partition(rows.begin(), rows.end(), [](const Row& row) { return row.actual; });
  return rows;
}

/// From the hour in which the first event begins; events that run for days say
/// little about the rest.
Span span_of(const std::vector<Row>& rows) {
  Span span{INT64_MAX, 0};
  for (const Row& row : rows) {
    for (const auto& [start, event] : row.events) {
      if (event.duration >= kLongest) continue;
      span.begin = std::min(span.begin, start);
      span.end = std::max(span.end, start + event.duration);
    }
  }
  span.begin -= span.begin % kHour;
  span.end = std::min(span.begin + kLongest, (span.end + kHour - 1) / kHour * kHour);
  return span;
}

std::string place(double left, double width) {
  return "left:" + number(left) + "px;width:" + number(width) + "px";
}

void write_event(Markup* out, const tools::Event& event, const Span& span) {
  const std::int64_t begin = std::max(event.start, span.begin);
  const std::int64_t end = std::min(event.start + event.duration, span.end);
  if (end <= begin) return;
  const std::string times = clock_of(event.start) + "–" + clock_of(event.start + event.duration);
  const std::string name = event.title.empty() ? "(no title)" : event.title;
  out->open("div",
            {{"class", "event"},
             {"style", place(static_cast<double>(begin - span.begin) * kPixelsPerSecond,
                             static_cast<double>(end - begin) * kPixelsPerSecond)},
             {"title", times + "  " + name + (event.text.empty() ? "" : "\n" + event.text)}});
  out->leaf("b", name).leaf("span", times).close();
}

void write_hours(Markup* out, const Span& span, double width) {
  out->open("div", {{"class", "hours"}, {"style", "width:" + number(width + kNameWidth) + "px"}});
  out->leaf("div", day_of(span.begin), {{"class", "who"}});
  for (std::int64_t hour = span.begin; hour < span.end; hour += kHour)
    out->leaf(
        "div", clock_of(hour),
        {{"style", place(kNameWidth + static_cast<double>(hour - span.begin) * kPixelsPerSecond,
                         static_cast<double>(kHour) * kPixelsPerSecond)}});
  out->close();
}

void write_row(Markup* out, const Row& row, const Span& span, double width) {
  const bool shown = std::any_of(row.events.begin(), row.events.end(), [&](const auto& entry) {
    return entry.first < span.end && entry.first + entry.second.duration > span.begin;
  });
  if (!shown) return;
  out->open("div", {{"class", "row"}, {"style", "width:" + number(width + kNameWidth) + "px"}});
  out->leaf("div", row.name, {{"class", "who"}});
  out->open("div", {{"class", "events"}});
  for (const auto& [start, event] : row.events) write_event(out, event, span);
  out->close().close();
}

void write_grid(Markup* out, const std::vector<Row>& rows) {
  const Span span = span_of(rows);
  if (span.end <= span.begin) return;
  const double width = static_cast<double>(span.end - span.begin) * kPixelsPerSecond;
  out->open("div", {{"class", "guide card"}, {"tabindex", "0"}});
  write_hours(out, span, width);
  for (const Row& row : rows) write_row(out, row, span, width);
  out->close();
}

void write_list(Markup* out, const std::vector<Row>& rows) {
  std::size_t count = 0;
  for (const Row& row : rows) count += row.events.size();
  out->open("details").leaf("summary", "All " + grouped(count) + " events");
  open_table(out, {"Service", "Day", "Begin", "#Minutes", "Event", "Text", "Language"});
  for (const Row& row : rows) {
    for (const auto& [start, event] : row.events) {
      out->open("tr");
      cell(out, row.name);
      cell(out, day_of(start));
      cell(out, clock_of(start));
      cell(out, std::to_string(event.duration / 60), "number");
      cell(out, event.title);
      cell(out, event.text, "soft");
      cell(out, event.language);
      out->close();
    }
  }
  close_table(out);
  out->close();
}

}  // namespace

void write_guide(Markup* out, const Report& report) {
  const std::vector<Row> rows = rows_of(report);
  if (rows.empty()) {
    out->leaf("p", "No EIT announces an event.", {{"class", "soft"}});
    return;
  }
  out->leaf("p",
            "Times are UTC, as the EIT has them. Services of other streams go by "
            "original_network_id/transport_stream_id/service_id.",
            {{"class", "soft"}});
  write_grid(out, rows);
  write_list(out, rows);
}

}  // namespace report
