// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace analysis {

/// The checks of ETSI TR 101 290, clause 5.2, in its order.
enum class Check : std::uint8_t {
  sync_loss,
  sync_byte,
  pat,
  continuity,
  pmt,
  pid,
  transport,
  crc,
  pcr_repetition,
  pcr_discontinuity,
  pcr_accuracy,
  pts,
  cat,
  nit,
  si_repetition,
  buffer,
  unreferenced_pid,
  sdt,
  eit,
  rst,
  tdt,
  empty_buffer,
  data_delay,
};

struct CheckInfo {
  Check check;
  unsigned priority;
  const char* number;                  // as the report numbers it
  const char* name;                    // as the report names it
  const char* definition;              // what is counted here, for people
  const char* unit;                    // of a finding's worst value; "" where it has none
  const char* not_measured = nullptr;  // why a file never allows it
};

/// A row per check, in the order of the enumeration.
std::span<const CheckInfo> check_table();
const CheckInfo& info(Check check);

/// Limits in seconds.
inline constexpr double kPatLimit = 0.5;
inline constexpr double kPmtLimit = 0.5;
inline constexpr double kPidLimit = 5.0;
inline constexpr double kPcrLimit = 0.1;
inline constexpr double kPcrRecommended = 0.04;
inline constexpr double kPtsLimit = 0.7;
inline constexpr double kReferenceLimit = 0.5;
inline constexpr double kShortestInterval = 0.025;
inline constexpr double kPcrAccuracy = 500e-9;

/// What EN 300 468 lets a PID carry, and how often TR 101 211 wants it.
struct TableRule {
  unsigned pid;
  unsigned table_id;
  Check check;    // that misses it
  double limit;   // longest interval in seconds; 0 for none
  bool expected;  // an absence from the whole stream is an error
};

/// The rule of a table on a PID; null where it has no business there or no rule.
const TableRule* rule_of(unsigned pid, unsigned table_id);
std::span<const TableRule> table_rules();

/// The check that fails when the PID carries that table id; null when it may.
const CheckInfo* intruder(unsigned pid, unsigned table_id);

}  // namespace analysis
