// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/analysis/evaluate.h"

#include <algorithm>

#include "tools/analysis/conclusions.h"
#include "tools/analysis/rates.h"
#include "tools/analysis/tables.h"
#include "tools/analysis/timeline.h"

namespace analysis {
namespace {

void add_finding(const Timeline& timeline, const ErrorKey& key, const ErrorCount& error,
                 CheckResult* result) {
  const Finding finding{.pid = key.pid,
                        .table_id = key.table_id,
                        .count = error.count,
                        .first = timeline.place(error.first_packet, key.pid),
                        .last = timeline.place(error.last_packet, key.pid),
                        .worst = error.worst};
  if (result->count == 0 || finding.first.packet < result->first.packet)
    result->first = finding.first;
  if (result->count == 0 || finding.last.packet > result->last.packet) result->last = finding.last;
  result->count += finding.count;
  result->findings.push_back(finding);
}

std::vector<CheckResult> checks_of(const PacketPass& pass, const Timeline& timeline,
                                   const Conclusions& conclusions) {
  std::vector<CheckResult> results;
  for (const CheckInfo& row : check_table()) {
    CheckResult result;
    result.info = &row;
    for (const auto& [key, error] : pass.errors())
      if (key.check == row.check) add_finding(timeline, key, error, &result);
    if (result.count == 0) result.not_measured = conclusions.not_measured(row.check);
    result.windows = pass.error_windows(row.check);
    results.push_back(std::move(result));
  }
  return results;
}

}  // namespace

Result evaluate(PacketPass* pass, const PacketReader& reader,
                const std::vector<Reference>& references) {
  const Timeline timeline(*pass, reader, references);
  Conclusions conclusions(pass, timeline, references);
  if (reader.packets() > 0) conclusions.draw();
  Result result;
  result.packets = reader.packets();
  result.skipped = reader.skipped();
  result.packet_size = reader.packet_size();
  result.reference = timeline.reference();
  result.clocks = timeline.clocks();
  const Clock* clock = timeline.clock_of(result.reference);
  if (clock != nullptr) result.duration = clock->seconds_at(reader.packets());
  result.pids = rates_of(*pass, clock, reader.packets());
  result.tables = tables_of(*pass, timeline);
  result.checks = checks_of(*pass, timeline, conclusions);
  result.window = pass->window();
  return result;
}

}  // namespace analysis
