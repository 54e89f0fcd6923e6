// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/core/json.h"

#include <cmath>

#include "tools/report/report.h"

namespace report {
namespace {

using analysis::CheckResult;
using tools::Json;

void add_real(Json& json, const char* name, const std::optional<double>& value) {
  if (value) json.real(name, *value);
}

void add_place(Json& json, const char* name, const analysis::Place& place) {
  json.object(name).number("packet", place.packet).number("offset", place.offset);
  add_real(json, "seconds", place.seconds);
  json.end_object();
}

void add_services(Json& json, const Report& report) {
  json.list("services", report.psi->programmes(), [&](const auto& entry) {
    const tools::Programme& programme = entry.second;
    json.number("service_id", programme.number)
        .text_if("name", programme.name)
        .text_if("provider", programme.provider)
        .number("pmt_pid", programme.pmt_pid)
        .number("pcr_pid", programme.pcr_pid)
        .list("streams", programme.streams, [&](const tools::StreamInfo& stream) {
          json.number("pid", stream.pid)
              .number("stream_type", stream.stream_type)
              .text("kind", stream.kind)
              .text("codec", stream.codec)
              .text_if("language", stream.language);
        });
    const auto snapshot = report.snapshots.find(programme.number);
    if (snapshot == report.snapshots.end()) return;
    json.text_if("no_picture", snapshot->second.reason);
    if (snapshot->second.png.empty()) return;
    json.number("picture_width", snapshot->second.width)
        .number("picture_height", snapshot->second.height);
  });
}

void add_pids(Json& json, const analysis::Result& result) {
  json.list("pids", result.pids, [&](const analysis::PidResult& pid) {
    json.number("pid", pid.pid)
        .number("packets", pid.record->packets)
        .number("scrambled", pid.record->scrambled)
        .number("pcrs", pid.record->pcrs.size());
    if (pid.rates.empty()) return;
    json.real("bits_per_second", pid.mean_rate);
    json.list("rates", pid.rates, [&](const analysis::RatePoint& point) {
      json.real("begin", point.begin).real("end", point.end).real("bits_per_second", point.bits);
    });
  });
}

void add_clocks(Json& json, const analysis::Result& result) {
  json.list("clocks", result.clocks, [&](const analysis::ClockResult& row) {
    json.number("pid", row.pid)
        .real("bits_per_second", analysis::kPacketBits / row.clock.packet_time())
        .real("rate_spread", row.clock.rate_spread());
    json.list("pcrs", row.clock.points(), [&](const analysis::PcrPoint& point) {
      json.number("packet", point.packet).real("seconds", point.seconds);
      if (!std::isnan(point.difference))
        json.real("interval", point.interval).real("difference", point.difference);
      add_real(json, "deviation", point.deviation);
    });
  });
}

void add_findings(Json& json, const CheckResult& check) {
  json.list("findings", check.findings, [&](const analysis::Finding& finding) {
    if (finding.pid < analysis::kPids) json.number("pid", finding.pid);
    if (finding.table_id != analysis::kNoTable) json.number("table_id", finding.table_id);
    json.number("count", finding.count);
    add_place(json, "first", finding.first);
    add_place(json, "last", finding.last);
    if (check.info->unit[0] != '\0') json.real("worst", finding.worst);
  });
}

void add_checks(Json& json, const analysis::Result& result) {
  json.list("checks", result.checks, [&](const CheckResult& check) {
    json.text("number", check.info->number)
        .text("name", check.info->name)
        .number("priority", check.info->priority)
        .number("count", check.count)
        .text_if("not_measured", check.not_measured)
        .text_if("unit", check.info->unit);
    if (check.count == 0) return;
    add_place(json, "first", check.first);
    add_place(json, "last", check.last);
    add_findings(json, check);
  });
}

void add_tables(Json& json, const analysis::Result& result) {
  json.list("tables", result.tables, [&](const analysis::TableResult& table) {
    json.number("pid", table.pid)
        .number("table_id", table.table_id)
        .text("table", tools::table_name(table.table_id))
        .number("sub_tables", table.sub_tables)
        .number("sections", table.sections)
        .number("bytes", table.bytes);
    if (table.intervals == 0) return;
    json.real("shortest_interval", table.shortest)
        .real("mean_interval", table.sum / static_cast<double>(table.intervals))
        .real("longest_interval", table.longest);
  });
}

void add_guide(Json& json, const Report& report) {
  json.list("guide", report.guides, [&](const auto& entry) {
    const auto& [key, guide] = entry;
    json.number("original_network_id", key.original_network_id)
        .number("transport_stream_id", key.transport_stream_id)
        .number("service_id", key.service_id)
        .flag("actual", guide.actual);
    std::vector<tools::Event> events;
    for (const auto& event : {guide.present, guide.following})
      if (event) events.push_back(*event);
    events.insert(events.end(), guide.schedule.begin(), guide.schedule.end());
    json.list("events", events, [&](const tools::Event& event) {
      json.number("id", event.id)
          .number("start", event.start)
          .number("duration", event.duration)
          .text_if("title", event.title)
          .text_if("text", event.text)
          .text_if("language", event.language);
    });
  });
}

}  // namespace

void print_json(const Report& report) {
  const analysis::Result& result = report.result;
  Json json;
  json.object()
      .text("file", report.file)
      .number("size", report.size)
      .number("packet_size", result.packet_size)
      .number("packets", result.packets)
      .number("skipped_bytes", result.skipped)
      .text_if("network", report.psi->network())
      .text_if("time", report.psi->time());
  add_real(json, "duration", result.duration);
  add_services(json, report);
  add_checks(json, result);
  add_pids(json, result);
  add_clocks(json, result);
  add_tables(json, result);
  add_guide(json, report);
  json.end_object().print();
}

}  // namespace report
