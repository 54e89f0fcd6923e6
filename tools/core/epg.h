// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <array>
#include <bitset>
#include <compare>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/core/atsc.h"
#include "tools/core/guide.h"

namespace tools {

/// Gathers event information tables (ETSI EN 300 468, 5.2.4), and those of ATSC.
/// Each section is parsed once; a newer version of a sub-table replaces it.
class Epg {
 public:
  Epg();

  /// A whole section; other tables are ignored.
  void add(unsigned pid, std::string_view section);

  [[nodiscard]] std::map<ServiceKey, Guide> guides() const;
  /// Sections that were taken, without repetitions.
  [[nodiscard]] unsigned sections() const { return taken_; }

 private:
  struct TableKey {
    ServiceKey service;
    unsigned table_id = 0;

    auto operator<=>(const TableKey&) const = default;
  };
  struct Table {
    unsigned version = 0;
    unsigned last_section = 0;
    unsigned last_table_id = 0;
    std::map<unsigned, std::vector<Event>> sections;  // by number
    std::array<int, 32> segment_last;                 // −1: none of the segment came
  };

  static unsigned missing_in(const Table& table, bool schedule);
  void add_missing_tables(std::map<ServiceKey, Guide>* guides) const;

  std::map<TableKey, Table> tables_;
  AtscGuide atsc_;
  unsigned taken_ = 0;
};

}  // namespace tools
