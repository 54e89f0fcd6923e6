// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "tools/core/json.h"

namespace tools {

/// The header of a section (ISO/IEC 13818-1, 2.4.4.11).
struct SectionHeader {
  enum class Crc { kNone, kGood, kBad };

  explicit SectionHeader(std::string_view section);

  unsigned table_id = 0;
  bool long_form = false;
  // Of the long form only.
  unsigned extension = 0;
  unsigned version = 0;
  bool current = false;
  unsigned number = 0;
  unsigned last_number = 0;
  Crc crc = Crc::kNone;
};

const char* crc_name(SectionHeader::Crc crc);

/// One line: PID, table, extension, version, number, size and CRC verdict.
std::string describe_section(unsigned pid, std::string_view section);

/// Members of an object.
void add_section(Json& json, unsigned pid, std::string_view section);

/// What came last of each section of each sub-table. The element compares a section
/// with the one before it on the same filter, which may be another of the sub-table.
class SectionMemory {
 public:
  /// Whether it is not what came last in its place.
  bool is_new(unsigned pid, std::string_view section);

 private:
  std::map<std::string, std::string> last_;  // by PID and what names the place
};

/// Sections by PID and table id.
class SectionCounts {
 public:
  struct Count {
    std::uint64_t sections = 0;
    std::uint64_t bytes = 0;
    std::uint64_t good_crc = 0;
    std::uint64_t bad_crc = 0;
    std::uint64_t without_crc = 0;
  };

  void add(unsigned pid, std::string_view section);
  [[nodiscard]] const std::map<std::pair<unsigned, unsigned>, Count>& counts() const {
    return counts_;
  }

 private:
  std::map<std::pair<unsigned, unsigned>, Count> counts_;
};

}  // namespace tools
