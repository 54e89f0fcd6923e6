// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/core/guide.h"

namespace tools {

/// Gathers the programme guide of ATSC A/65: EIT-n and ETT-n on the PIDs that the
/// MGT names, the channels that they are of, and the time, from which their times
/// count.
class AtscGuide {
 public:
  /// A whole section of the table ids 0xC8 to 0xCD; others are ignored.
  void add(unsigned pid, std::string_view section);

  /// With network id 0. A source without a channel table has its source id for a
  /// service id.
  [[nodiscard]] std::map<ServiceKey, Guide> guides() const;

 private:
  struct Reader;  // of tables; atsc.cpp
  struct Table {
    unsigned version = 0;
    unsigned last_section = 0;
    std::map<unsigned, std::vector<Event>> sections;  // by number; start in GPS seconds
  };
  using TableKey = std::pair<unsigned, unsigned>;  // source id, PID

  [[nodiscard]] ServiceKey key_of(unsigned source) const;
  [[nodiscard]] Event finished(Event event, unsigned source) const;
  void place(Event event, Guide* guide) const;

  std::map<TableKey, Table> tables_;
  std::map<std::uint32_t, std::string> texts_;  // by ETM id
  std::map<unsigned, unsigned> programmes_;     // by source id
  unsigned transport_stream_id_ = 0;
  unsigned leap_seconds_ = 18;       // since 2017, until a table says so
  std::optional<std::int64_t> now_;  // GPS seconds
};

}  // namespace tools
