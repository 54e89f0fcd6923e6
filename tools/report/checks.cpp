// SPDX-License-Identifier: LGPL-2.1-or-later
#include <array>

#include "tools/report/format.h"
#include "tools/report/plot.h"
#include "tools/report/sections.h"

namespace report {
namespace {

constexpr const char* kPriorities[] = {
    "Priority 1: needed for decoding",
    "Priority 2: continuous or periodic monitoring",
    "Priority 3: depending on the application",
};

void write_place(Markup* out, const analysis::Place& place) {
  out->open("td", {{"class", "place"}});
  out->leaf("b", "#" + grouped(place.packet));
  if (place.seconds) out->text(" at ").text(time_of(*place.seconds));
  out->empty("br").leaf("span", "byte " + grouped(place.offset), {{"class", "soft"}}).close();
}

std::string worst_of(const analysis::CheckInfo& info, double worst) {
  if (worst <= 0 || info.unit[0] == '\0') return "";
  return number(info.unit[0] == 'n' ? static_cast<double>(static_cast<long>(worst)) : worst) + " " +
         info.unit;
}

std::string cause_of(const Report& report, const analysis::Finding& finding) {
  if (finding.pid >= analysis::kPids) return "the stream";
  std::string cause = hex(finding.pid);
  if (finding.table_id != analysis::kNoTable)
    return cause + " " + tools::table_name(static_cast<unsigned>(finding.table_id));
  const std::string purpose = purpose_of(report, finding.pid);
  return purpose.empty() ? cause : cause + " " + purpose;
}

void write_findings(Markup* out, const Report& report, const analysis::CheckResult& check) {
  open_table(out, {"Cause", "#Count", "First", "Last", "#Worst"});
  for (const analysis::Finding& finding : check.findings) {
    out->open("tr");
    cell(out, cause_of(report, finding));
    cell(out, grouped(finding.count), "number");
    write_place(out, finding.first);
    write_place(out, finding.last);
    cell(out, worst_of(*check.info, finding.worst), "number");
    out->close();
  }
  close_table(out);
}

void write_verdict(Markup* out, const analysis::CheckResult& check) {
  out->open("td", {{"class", "verdict"}});
  if (check.count > 0)
    out->leaf("span", grouped(check.count), {{"class", "pill bad"}});
  else if (check.not_measured.empty())
    out->leaf("span", "none", {{"class", "pill good"}});
  else
    out->leaf("span", "not measured", {{"class", "pill"}});
  out->close();
}

/// A row of their own, for its width.
void write_causes(Markup* out, const Report& report, const analysis::CheckResult& check) {
  out->open("tr").leaf("td", "").open("td", {{"colspan", "5"}, {"class", "causes"}});
  out->open("details").leaf("summary", grouped(check.findings.size()) +
                                           (check.findings.size() == 1 ? " cause" : " causes"));
  write_findings(out, report, check);
  out->close().close().close();
}

void write_check(Markup* out, const Report& report, const analysis::CheckResult& check) {
  out->open("tr", {{"id", std::string("check-") + check.info->number}});
  cell(out, check.info->number, "mono");
  out->open("td").open("details").leaf("summary", check.info->name);
  out->leaf("p", check.info->definition, {{"class", "soft"}});
  out->close().close();
  write_verdict(out, check);
  if (check.count == 0) {
    out->leaf("td", check.not_measured, {{"colspan", "3"}, {"class", "soft reason"}}).close();
    return;
  }
  out->open("td");
  draw_strip(out, check.windows, report.result.packets / report.result.window + 1);
  out->close();
  write_place(out, check.first);
  write_place(out, check.last);
  out->close();
  write_causes(out, report, check);
}

}  // namespace

void write_checks(Markup* out, const Report& report) {
  for (unsigned priority = 1; priority <= std::size(kPriorities); priority++) {
    out->leaf("h3", kPriorities[priority - 1]);
    out->open("div", {{"class", "checks"}});
    open_table(out, {"No.", "Check", "Errors", "Along the stream", "First", "Last"});
    for (const analysis::CheckResult& check : report.result.checks)
      if (check.info->priority == priority) write_check(out, report, check);
    close_table(out);
    out->close();
  }
}

}  // namespace report
