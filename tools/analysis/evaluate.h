// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/analysis/clock.h"
#include "tools/analysis/packet_pass.h"

namespace analysis {

/// What a table says a PID is.
enum class Role : std::uint8_t { pmt, pcr, video, audio, other, access };

struct Reference {
  unsigned pid = 0;
  Role role = Role::other;
  unsigned programme = 0;    // 0 for none
  std::uint64_t packet = 0;  // of the section that says so first
};

/// Where something is; seconds by the PCR of the programme, or of the multiplex
/// where it belongs to none.
struct Place {
  std::uint64_t packet = 0;
  std::uint64_t offset = 0;
  std::optional<double> seconds;
};

/// One cause of a check's errors.
struct Finding {
  unsigned pid = kPids;  // kPids for the stream itself
  int table_id = kNoTable;
  std::uint64_t count = 0;
  Place first;
  Place last;
  double worst = 0;  // in the check's unit
};

struct CheckResult {
  const CheckInfo* info = nullptr;
  std::uint64_t count = 0;
  Place first;
  Place last;
  std::string not_measured;  // why, or empty
  std::vector<Finding> findings;
  std::vector<std::uint32_t> windows;  // errors per window
};

/// A PID's share of the stream in one span of time.
struct RatePoint {
  double begin = 0;  // in seconds
  double end = 0;
  double bits = 0;  // per second
};

struct PidResult {
  unsigned pid = 0;
  const PidRecord* record = nullptr;
  double mean_rate = 0;  // in bit/s; 0 where there is no clock
  std::vector<RatePoint> rates;
};

struct ClockResult {
  unsigned pid = 0;
  Clock clock;
};

/// Sections of one table id on a PID.
struct TableResult {
  unsigned pid = 0;
  unsigned table_id = 0;
  std::uint64_t sub_tables = 0;  // by table id extension
  std::uint64_t sections = 0;
  std::uint64_t bytes = 0;
  std::uint64_t intervals = 0;  // from a section to the same one again
  double shortest = 0;          // in seconds
  double longest = 0;
  double sum = 0;
};

struct Result {
  std::uint64_t packets = 0;
  std::uint64_t skipped = 0;
  unsigned packet_size = 188;
  std::optional<double> duration;   // in seconds
  unsigned reference = kNullPid;    // the PCR PID that times the multiplex
  std::vector<PidResult> pids;      // by number
  std::vector<ClockResult> clocks;  // by PID
  std::vector<TableResult> tables;  // by PID and table id
  std::vector<CheckResult> checks;  // in the order of check_table()
  std::uint64_t window = 1;         // packets per window
};

/// Draws the conclusions of a pass: times, checks that depend on them, rates.
/// The result refers to records of the pass.
Result evaluate(PacketPass* pass, const PacketReader& reader,
                const std::vector<Reference>& references);

}  // namespace analysis
