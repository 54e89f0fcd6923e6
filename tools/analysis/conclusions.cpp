// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/analysis/conclusions.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace analysis {
namespace {

constexpr unsigned kFirstFreePid = 0x20;
constexpr unsigned kAtscBasePid = 0x1FFB;

/// What a check needs before it can find anything.
struct Need {
  Check check;
  double duration;  // in seconds; the checks of a table have it from its rule
};

constexpr auto kNeeds = std::to_array<Need>({
    {Check::pat, kPatLimit},
    {Check::pmt, kPmtLimit},
    {Check::pid, kPidLimit},
    {Check::pcr_repetition, 0},
    {Check::pcr_discontinuity, 0},
    {Check::pcr_accuracy, 0},
    {Check::pts, kPtsLimit},
    {Check::nit, 10},
    {Check::si_repetition, 0},
    {Check::unreferenced_pid, kReferenceLimit},
    {Check::sdt, 2},
    {Check::eit, 2},
    {Check::tdt, 30},
});

std::string format(const char* text, double value) {
  std::array<char, 160> buffer;
  std::snprintf(buffer.data(), buffer.size(), text, value);
  return buffer.data();
}

std::vector<std::uint64_t> starts(const SubTable& table) {
  std::vector<std::uint64_t> packets;
  for (const SectionTime& section : table.sections) packets.push_back(section.first_packet);
  return packets;
}

}  // namespace

Conclusions::Conclusions(PacketPass* pass, const Timeline& timeline,
                         const std::vector<Reference>& references)
    : pass_(pass),
      timeline_(timeline),
      references_(references),
      came_(pass->pids().begin(), pass->pids().end()) {}

void Conclusions::draw() {
  access();
  if (timeline_.reference() == kNullPid) return;
  tables();
  programmes();
  sparse_pids();
  repetition();
  clocks();
  time_stamps();
  unreferenced();
}

double Conclusions::seconds(std::uint64_t packet, unsigned pid) const {
  return timeline_.clock_of(pid)->seconds_at(packet);
}

/// An absence counts where it ends: with the packet that came late, or with the
/// stream.
void Conclusions::absences(Check check, unsigned pid, int table_id,
                           std::vector<std::uint64_t> packets, std::uint64_t from, double limit) {
  packets.push_back(timeline_.packets() - 1);
  for (const std::uint64_t packet : packets) {
    const double absence = seconds(packet, pid) - seconds(std::min(from, packet), pid);
    if (absence > limit) pass_->count(check, pid, packet, table_id, absence);
    from = packet;
  }
}

void Conclusions::tables() {
  std::map<std::pair<unsigned, unsigned>, std::vector<std::uint64_t>> found;
  for (const auto& [key, table] : pass_->tables()) {
    std::vector<std::uint64_t>& all = found[{key.pid, key.table_id}];
    const std::vector<std::uint64_t> some = starts(table);
    all.insert(all.end(), some.begin(), some.end());
  }
  for (auto& [key, packets] : found) std::sort(packets.begin(), packets.end());
  absences(Check::pat, 0, 0, found[{0, 0}], 0, kPatLimit);
  if (came(0) && pass_->record(0).scrambled > 0)
    pass_->count(Check::pat, 0, pass_->record(0).first_scrambled);
  for (const TableRule& rule : table_rules()) {
    const std::vector<std::uint64_t>& packets = found[{rule.pid, rule.table_id}];
    const bool expected = rule.expected && !came(kAtscBasePid);
    if (expected || !packets.empty())
      absences(rule.check, rule.pid, static_cast<int>(rule.table_id), packets, 0, rule.limit);
  }
}

void Conclusions::programmes() {
  constexpr unsigned kTable = 2;
  for (const Reference& row : references_) {
    if (row.role != Role::pmt) continue;
    const auto found = pass_->tables().find({row.pid, kTable, row.programme});
    const std::vector<std::uint64_t> packets =
        found != pass_->tables().end() ? starts(found->second) : std::vector<std::uint64_t>{};
    absences(Check::pmt, row.pid, kTable, packets, row.packet, kPmtLimit);
    if (came(row.pid) && pass_->record(row.pid).scrambled > 0)
      pass_->count(Check::pmt, row.pid, pass_->record(row.pid).first_scrambled, kTable);
  }
}

void Conclusions::sparse_pids() {
  for (const Reference& row : references_) {
    if (row.role != Role::video && row.role != Role::audio) continue;
    if (!came(row.pid)) {
      absences(Check::pid, row.pid, kNoTable, {}, row.packet, kPidLimit);
      continue;
    }
    const PidRecord& record = pass_->record(row.pid);
    auto gaps = record.gaps;
    gaps.emplace_back(std::min(row.packet, record.first_packet), record.first_packet);
    gaps.emplace_back(record.last_packet, timeline_.packets() - 1);
    for (const auto& [before, after] : gaps) {
      const double absence = seconds(after, row.pid) - seconds(before, row.pid);
      if (absence > kPidLimit) pass_->count(Check::pid, row.pid, after, kNoTable, absence);
    }
  }
}

void Conclusions::repetition() {
  for (const auto& [key, table] : pass_->tables()) {
    const TableRule* rule = rule_of(key.pid, key.table_id);
    if (rule == nullptr) continue;
    const auto table_id = static_cast<int>(key.table_id);
    std::map<unsigned, std::vector<std::uint64_t>> by_number;
    const SectionTime* before = nullptr;
    for (const SectionTime& section : table.sections) {
      by_number[section.number].push_back(section.first_packet);
      const double distance = before != nullptr ? seconds(section.first_packet, key.pid) -
                                                      seconds(before->last_packet, key.pid)
                                                : kShortestInterval;
      before = &section;
      if (distance < kShortestInterval)
        pass_->count(Check::si_repetition, key.pid, section.first_packet, table_id);
    }
    for (auto& [number, packets] : by_number)
      absences(Check::si_repetition, key.pid, table_id, packets, 0, rule->limit);
  }
}

void Conclusions::clocks() {
  for (const ClockResult& row : timeline_.clocks()) {
    for (const PcrPoint& point : row.clock.points()) {
      const bool in_time = point.difference > 0 && point.difference <= kPcrLimit;
      const bool excused = point.step == PcrStep::signalled || std::isnan(point.difference);
      if (!excused && !in_time)
        pass_->count(Check::pcr_discontinuity, row.pid, point.packet, kNoTable,
                     std::abs(point.difference));
      if (point.interval > kPcrLimit)
        pass_->count(Check::pcr_repetition, row.pid, point.packet, kNoTable, point.interval);
      if (!point.deviation) continue;
      deviations_++;
      const double deviation = std::abs(*point.deviation);
      if (deviation > kPcrAccuracy)
        pass_->count(Check::pcr_accuracy, row.pid, point.packet, kNoTable, deviation * 1e9);
    }
  }
}

void Conclusions::time_stamps() {
  for (const Reference& row : references_) {
    if ((row.role != Role::video && row.role != Role::audio) || !came(row.pid)) continue;
    const PidRecord& record = pass_->record(row.pid);
    if (record.scrambled > 0 || record.unit_starts == 0) continue;
    absences(Check::pts, row.pid, kNoTable, record.pts, record.first_packet, kPtsLimit);
  }
}

void Conclusions::access() {
  const bool has_cat = std::any_of(pass_->tables().begin(), pass_->tables().end(),
                                   [](const auto& entry) { return entry.first.pid == 1; });
  for (const unsigned pid : pass_->pids())
    if (const PidRecord& record = pass_->record(pid); record.scrambled > 0 && !has_cat)
      return pass_->count(Check::cat, pid, record.first_scrambled);
}

void Conclusions::unreferenced() {
  std::map<unsigned, std::uint64_t> named;  // where first, by PID
  for (const Reference& row : references_) {
    const auto [known, added] = named.try_emplace(row.pid, row.packet);
    if (!added) known->second = std::min(known->second, row.packet);
  }
  // PMTs cannot be read before a PAT has told where they are.
  const auto pat = pass_->tables().lower_bound({0, 0, 0});
  const bool has_pat = pat != pass_->tables().end() && pat->first.pid == 0;
  const std::uint64_t first_pat = has_pat ? pat->second.sections.front().first_packet : 0;
  for (const unsigned pid : pass_->pids()) {
    const bool free = pid < kFirstFreePid || pid == kNullPid || pid == kAtscBasePid;
    if (free) continue;
    const std::uint64_t first = std::max(pass_->record(pid).first_packet, first_pat);
    const auto found = named.find(pid);
    const std::uint64_t until =
        found != named.end() ? std::max(found->second, first) : timeline_.packets() - 1;
    if (seconds(until, pid) - seconds(first, pid) > kReferenceLimit)
      pass_->count(Check::unreferenced_pid, pid, pass_->record(pid).first_packet);
  }
}

std::string Conclusions::not_measured(Check check) const {
  if (const char* never = info(check).not_measured) return never;
  const auto* need = std::find_if(kNeeds.begin(), kNeeds.end(),
                                  [&](const Need& row) { return row.check == check; });
  if (need == kNeeds.end()) return "";
  const Clock* clock = timeline_.clock_of(timeline_.reference());
  if (clock == nullptr) return "there is no PCR, so no time";
  if (check == Check::pcr_accuracy && deviations_ == 0)
    return clock->rate_spread() > Clock::kSteadyRate
               ? format(
                     "the bit rate varies between PCRs (by %.1f %%), so no place calls for a value",
                     clock->rate_spread() * 100)
               : "too few PCRs follow each other (seven are needed)";
  const double duration = clock->seconds_at(timeline_.packets());
  if (duration <= need->duration)
    return format("the stream lasts %.2f s", duration) +
           format(", not longer than the %g s allowed", need->duration);
  return "";
}

}  // namespace analysis
