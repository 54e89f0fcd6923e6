// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/analysis/checks.h"

#include <algorithm>
#include <array>

namespace analysis {
namespace {

constexpr auto kChecks = std::to_array<CheckInfo>({
    {Check::sync_loss, 1, "1.1", "TS_sync_loss",
     "Two or more sync bytes in a row are wrong. Sync is found again where five in a row are "
     "right; "
     "nothing in between is examined.",
     ""},
    {Check::sync_byte, 1, "1.2", "Sync_byte_error", "A packet does not begin with 0x47.", ""},
    {Check::pat, 1, "1.3", "PAT_error",
     "No PAT section for more than 0.5 s (one count per gap), another table on PID 0, or PID 0 "
     "scrambled.",
     "s"},
    {Check::continuity, 1, "1.4", "Continuity_count_error",
     "The continuity counter does not go on as it should: packets lost, out of order, or sent more "
     "than twice. A signalled discontinuity is none.",
     ""},
    {Check::pmt, 1, "1.5", "PMT_error",
     "No PMT section of a programme that the PAT names for more than 0.5 s (one count per gap), or "
     "its PID scrambled.",
     "s"},
    {Check::pid, 1, "1.6", "PID_error",
     "No packet of a video or audio PID that a PMT names for more than 5 s (one count per gap).",
     "s"},
    {Check::transport, 2, "2.1", "Transport_error",
     "transport_error_indicator is set; nothing else of such a packet is examined.", ""},
    {Check::crc, 2, "2.2", "CRC_error", "CRC_32 of a PSI or SI section is wrong.", ""},
    {Check::pcr_repetition, 2, "2.3a", "PCR_repetition_error",
     "More than 100 ms between two PCRs of a PID. TS 101 154 recommends 40 ms: see the clocks.",
     "s"},
    {Check::pcr_discontinuity, 2, "2.3b", "PCR_discontinuity_indicator_error",
     "A PCR is not 0 to 100 ms after the one before, and discontinuity_indicator does not say so.",
     "s"},
    {Check::pcr_accuracy, 2, "2.4", "PCR_accuracy_error",
     "A PCR is more than 500 ns off the value that its place in the stream calls for at a constant "
     "bit rate: the median of up to eight interpolations between PCRs before and after it.",
     "ns"},
    {Check::pts, 2, "2.5", "PTS_error",
     "More than 700 ms between two PES headers with a PTS on a clear video or audio PID.", "s"},
    {Check::cat, 2, "2.6", "CAT_error",
     "There are scrambled packets and no CAT, or another table on PID 1.", ""},
    {Check::nit, 3, "3.1", "NIT_error",
     "No NIT (actual) for more than 10 s (one count per gap), or another table on PID 0x10.", "s"},
    {Check::si_repetition, 3, "3.2", "SI_repetition_error",
     "A section is repeated later than its table allows (SDT, EIT p/f 2 s, NIT, BAT and tables of "
     "other streams 10 s, TDT and TOT 30 s), or sections of one sub-table are less than 25 ms "
     "apart.",
     "s"},
    {Check::buffer, 3, "3.3", "Buffer_error", "A buffer of the T-STD overflows.", "",
     "a model of decoder buffers needs times of arrival, which a file does not have"},
    {Check::unreferenced_pid, 3, "3.4", "Unreferenced_PID",
     "A PID that no table has named 0.5 s after both it and a PAT came first. PIDs to 0x1F and "
     "0x1FFF need no naming.",
     ""},
    {Check::sdt, 3, "3.5", "SDT_error",
     "No SDT (actual) for more than 2 s (one count per gap), or another table on PID 0x11.", "s"},
    {Check::eit, 3, "3.6", "EIT_error",
     "No EIT p/f (actual) for more than 2 s (one count per gap), or another table on PID 0x12.",
     "s"},
    {Check::rst, 3, "3.7", "RST_error", "Another table than RST on PID 0x13.", ""},
    {Check::tdt, 3, "3.8", "TDT_error",
     "No TDT for more than 30 s (one count per gap), or another table on PID 0x14.", "s"},
    {Check::empty_buffer, 3, "3.9", "Empty_buffer_error", "A buffer of the T-STD is never empty.",
     "", "a model of decoder buffers needs times of arrival, which a file does not have"},
    {Check::data_delay, 3, "3.10", "Data_delay_error", "Data stay in the T-STD for over 1 s.", "",
     "a model of decoder buffers needs times of arrival, which a file does not have"},
});
static_assert(kChecks.size() == static_cast<std::size_t>(Check::data_delay) + 1);

constexpr auto kRules = std::to_array<TableRule>({
    {0x10, 0x40, Check::nit, 10, true},
    {0x10, 0x41, Check::nit, 10, false},
    {0x11, 0x42, Check::sdt, 2, true},
    {0x11, 0x46, Check::sdt, 10, false},
    {0x11, 0x4A, Check::sdt, 10, false},
    {0x12, 0x4E, Check::eit, 2, true},
    {0x12, 0x4F, Check::eit, 10, false},
    {0x14, 0x70, Check::tdt, 30, true},
    {0x14, 0x73, Check::tdt, 30, false},
});

/// Table ids that a PID may carry; the stuffing table, 0x72, goes with all of SI.
struct Guest {
  unsigned pid;
  unsigned first;
  unsigned last;
  Check check;
};

constexpr auto kGuests = std::to_array<Guest>({
    {0x00, 0x00, 0x00, Check::pat},
    {0x01, 0x01, 0x01, Check::cat},
    {0x10, 0x40, 0x41, Check::nit},
    {0x11, 0x42, 0x42, Check::sdt},
    {0x11, 0x46, 0x46, Check::sdt},
    {0x11, 0x4A, 0x4A, Check::sdt},
    {0x12, 0x4E, 0x6F, Check::eit},
    {0x13, 0x71, 0x71, Check::rst},
    {0x14, 0x70, 0x70, Check::tdt},
    {0x14, 0x73, 0x73, Check::tdt},
});
constexpr unsigned kStuffingTable = 0x72;

}  // namespace

std::span<const CheckInfo> check_table() { return kChecks; }

const CheckInfo& info(Check check) { return kChecks[static_cast<std::size_t>(check)]; }

std::span<const TableRule> table_rules() { return kRules; }

const TableRule* rule_of(unsigned pid, unsigned table_id) {
  const auto* row = std::find_if(kRules.begin(), kRules.end(), [&](const TableRule& rule) {
    return rule.pid == pid && rule.table_id == table_id;
  });
  return row != kRules.end() ? row : nullptr;
}

const CheckInfo* intruder(unsigned pid, unsigned table_id) {
  const CheckInfo* check = nullptr;
  for (const Guest& row : kGuests) {
    if (row.pid != pid) continue;
    const bool stuffing = pid >= 0x10 && table_id == kStuffingTable;
    if ((table_id >= row.first && table_id <= row.last) || stuffing) return nullptr;
    check = &info(row.check);
  }
  return check;
}

}  // namespace analysis
