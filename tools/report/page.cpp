// SPDX-License-Identifier: LGPL-2.1-or-later
#include <algorithm>
#include <array>
#include <filesystem>

#include "tools/report/format.h"
#include "tools/report/sections.h"
#include "tools/report/style.h"

namespace report {
namespace {

struct Section {
  const char* id;
  const char* title;
  void (*write)(Markup*, const Report&);
};

constexpr auto kSections = std::to_array<Section>({
    {"services", "Services", write_services},
    {"checks", "Checks by TR 101 290", write_checks},
    {"rates", "Bit rate", write_rates},
    {"pids", "PIDs", write_pids},
    {"clocks", "Clocks", write_clocks},
    {"tables", "Tables", write_tables},
    {"guide", "Programme guide", write_guide},
    {"method", "What was measured, and how", write_method},
});

void write_head(Markup* out, const std::string& title) {
  out->raw("<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\"/>");
  out->raw("<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\"/>");
  // Without this a browser asks the server for one.
  out->raw("<link rel=\"icon\" href=\"data:,\"/>");
  out->leaf("title", title).raw("<style>").raw(kStyle).raw("</style></head><body>");
}

void write_navigation(Markup* out) {
  out->open("nav");
  for (const Section& section : kSections)
    out->leaf("a", section.title, {{"href", std::string("#") + section.id}});
  out->close();
}

void fact(Markup* out, const std::string& value, const std::string& what, const char* style = "") {
  out->open("div", {{"class", std::string("fact card ") + style}});
  out->leaf("b", value).leaf("span", what).close();
}

std::uint64_t errors_of(const Report& report, unsigned priority) {
  std::uint64_t count = 0;
  for (const analysis::CheckResult& check : report.result.checks)
    if (check.info->priority == priority) count += check.count;
  return count;
}

std::string mean_rate(const analysis::Result& result) {
  if (!result.duration) return "unknown";
  return rate(static_cast<double>(result.packets) * analysis::kPacketBits / *result.duration);
}

}  // namespace

void open_table(Markup* out, std::initializer_list<const char*> columns) {
  out->open("div", {{"class", "scroll"}}).open("table").open("thead").open("tr");
  for (const char* column : columns) {
    const bool number = column[0] == '#';
    out->leaf("th", column + (number ? 1 : 0), {{"class", number ? "number" : ""}});
  }
  out->close().close().open("tbody");
}

void close_table(Markup* out) { out->close().close().close(); }

void cell(Markup* out, const std::string& text, const char* style) {
  out->leaf("td", text, {{"class", style}});
}

void write_summary(Markup* out, const Report& report) {
  const analysis::Result& result = report.result;
  out->open("header").leaf("p", "Transport stream report", {{"class", "kind"}});
  out->leaf("h1", std::filesystem::path(report.file).filename().string());
  std::string about =
      grouped(report.size) + " bytes, packets of " + std::to_string(result.packet_size) + " bytes";
  if (!report.psi->network().empty()) about += " · network " + report.psi->network();
  if (!report.psi->time().empty()) about += " · " + report.psi->time();
  out->leaf("p", about, {{"class", "soft"}});
  out->open("div", {{"class", "facts"}});
  for (unsigned priority = 1; priority <= 3; priority++) {
    const std::uint64_t errors = errors_of(report, priority);
    fact(out, grouped(errors), "errors of priority " + std::to_string(priority),
         errors > 0 ? "bad" : "good");
  }
  fact(out, result.duration ? time_of(*result.duration) : "unknown", "duration by PCR");
  fact(out, mean_rate(result), "mean bit rate");
  fact(out, grouped(result.packets), "packets");
  fact(out, grouped(report.psi->programmes().size()), "services");
  fact(out, grouped(result.pids.size()), "PIDs");
  out->close().close();
}

std::string page_of(const Report& report) {
  Markup out;
  write_head(&out, std::filesystem::path(report.file).filename().string() + " – report");
  out.open("main");
  write_summary(&out, report);
  write_navigation(&out);
  for (const Section& section : kSections) {
    out.open("section", {{"id", section.id}}).leaf("h2", section.title);
    section.write(&out, report);
    out.close();
  }
  out.close().raw("<script>").raw(kScript).raw("</script></body></html>\n");
  return out.str();
}

}  // namespace report
