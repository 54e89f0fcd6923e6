// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/analysis/tables.h"

#include <algorithm>

namespace analysis {
namespace {

void add_intervals(const SubTable& table, const Clock& clock, TableResult* result) {
  std::map<unsigned, double> last;  // time of each section_number
  for (const SectionTime& section : table.sections) {
    const double now = clock.seconds_at(section.first_packet);
    const auto [before, first] = last.try_emplace(section.number, now);
    if (first) continue;
    const double interval = now - std::exchange(before->second, now);
    const bool alone = result->intervals++ == 0;
    result->shortest = alone ? interval : std::min(result->shortest, interval);
    result->longest = std::max(result->longest, interval);
    result->sum += interval;
  }
}

}  // namespace

std::vector<TableResult> tables_of(const PacketPass& pass, const Timeline& timeline) {
  std::vector<TableResult> results;
  for (const auto& [key, table] : pass.tables()) {
    if (results.empty() || results.back().pid != key.pid || results.back().table_id != key.table_id)
      results.push_back({.pid = key.pid, .table_id = key.table_id});
    TableResult& result = results.back();
    result.sub_tables++;
    result.sections += table.sections.size();
    result.bytes += table.bytes;
    if (const Clock* clock = timeline.clock_of(key.pid)) add_intervals(table, *clock, &result);
  }
  return results;
}

}  // namespace analysis
