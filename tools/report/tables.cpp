// SPDX-License-Identifier: LGPL-2.1-or-later
#include <array>
#include <cmath>

#include "tools/report/format.h"
#include "tools/report/sections.h"

namespace report {
namespace {

std::string limit_of(const analysis::TableResult& table) {
  const analysis::TableRule* rule = analysis::rule_of(table.pid, table.table_id);
  if (rule != nullptr) return number(rule->limit) + " s";
  if (table.pid == 0) return number(analysis::kPatLimit) + " s";
  return table.table_id == 2 ? number(analysis::kPmtLimit) + " s" : "";
}

void write_table(Markup* out, const analysis::TableResult& table) {
  const bool repeated = table.intervals > 0;
  const double mean = table.sum / static_cast<double>(std::max<std::uint64_t>(table.intervals, 1));
  out->open("tr");
  cell(out, hex(table.pid), "mono");
  cell(out, hex(table.table_id, 2), "mono");
  cell(out, tools::table_name(table.table_id));
  cell(out, grouped(table.sub_tables), "number");
  cell(out, grouped(table.sections), "number");
  cell(out, grouped(table.bytes), "number");
  cell(out, repeated ? time_of(table.shortest) : "–", "number");
  cell(out, repeated ? time_of(mean) : "–", "number");
  cell(out, repeated ? time_of(table.longest) : "–", "number");
  cell(out, limit_of(table), "number soft");
  out->close();
}

struct Paragraph {
  const char* title;
  const char* text;
};

constexpr auto kMethod = std::to_array<Paragraph>({
    {"Time",
     "A file keeps no times of arrival. Time is what the PCRs say: between two PCRs of a PID the "
     "bit "
     "rate is taken as constant, wraps are unrolled, and a jump, signalled or not, is bridged at "
     "the "
     "PID's usual (median) bit rate. Places on the PIDs of a programme go by its PCR PID, all "
     "others "
     "by the PCR PID with most PCRs. Zero is the first packet of the file."},
    {"PCR intervals",
     "The interval is the difference of the values where place and value agree, else the distance "
     "of "
     "the packets at the usual bit rate. TR 101 290 counts intervals over 100 ms; TS 101 154 asks "
     "for "
     "100 ms and recommends 40 ms, which is shown beside it."},
    {"PCR jitter and accuracy",
     "Each PCR is compared with the value that its place calls for when the bit rate is constant: "
     "the "
     "median of interpolations between the first, second, … eighth PCRs before and after it, so "
     "that "
     "one wrong PCR does not accuse its neighbours. What this shows is PCR accuracy (PCR_AC); the "
     "jitter of arrival and the overall jitter (PCR_OJ), the frequency offset (PCR_FO) and the "
     "drift "
     "rate (PCR_DR) against a reference clock need times of arrival. Where the rate between PCRs "
     "varies by more than 1 % (10th to 90th percentile), as in streams without their null packets, "
     "nothing is measured."},
    {"Absences",
     "A table or PID that stays away too long counts once per absence, at the packet that came "
     "late "
     "or at the end of the file. The beginning and the end of the file count as absence too, when "
     "they alone exceed the limit. SI that is missing counts as an error unless the stream is "
     "ATSC's."},
    {"Continuity",
     "A packet may come twice. Behind a loss of sync and behind a packet with "
     "transport_error_indicator counters begin anew, since such packets tell nothing."},
    {"Not measured",
     "Buffers and delays of the T-STD (3.3, 3.9, 3.10), and whatever lasts longer than the file. "
     "Tables outside PSI and SI, such as AIT and DSM-CC, are not assembled."},
});

}  // namespace

void write_tables(Markup* out, const Report& report) {
  out->leaf("p", "The interval is the time until the same section comes again.",
            {{"class", "soft"}});
  open_table(out, {"PID", "Table id", "Table", "#Sub-tables", "#Sections", "#Bytes", "#Shortest",
                   "#Mean interval", "#Longest", "#Limit"});
  for (const analysis::TableResult& table : report.result.tables) write_table(out, table);
  close_table(out);
}

void write_method(Markup* out, const Report& report) {
  out->open("div", {{"class", "method card"}});
  for (const Paragraph& paragraph : kMethod)
    out->open("div").leaf("h3", paragraph.title).leaf("p", paragraph.text).close();
  if (report.result.skipped > 0)
    out->leaf("p", grouped(report.result.skipped) + " bytes of the file belong to no packet.");
  out->close();
}

}  // namespace report
