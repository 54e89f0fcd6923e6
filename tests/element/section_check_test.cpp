// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "sections/sec_filter.h"
#include "tests/element/harness.h"
#include "tests/support/ts_builder.h"

namespace vantrel::testing {
namespace {

using stream::Bytes;
using stream::with_bad_crc;

/// A long section whose CRC field is 0 and whose version is 0.
Bytes with_zero_crc_field() {
  Bytes section = stream::section(0x42, 1, 20);
  std::fill(section.end() - 4, section.end(), 0);
  return section;
}

/// The same payload under another version, its CRC field kept.
Bytes with_version_bits(Bytes section, std::uint8_t bits) {
  section[5] = static_cast<std::uint8_t>((section[5] & ~0x3E) | bits);
  return section;
}

struct Step {
  Bytes section;
  int verdict;
};

struct Case {
  const char* name;
  bool ver_chk;
  bool crc_chk;
  std::vector<Step> steps;
};

TEST(SectionCheck, JudgesEachSectionAgainstTheOneBefore) {
  const Bytes one = stream::section(0x42, 1, 40, 1);
  const Bytes two = stream::section(0x42, 2, 40, 1);  // another payload, same version
  const Bytes next = stream::section(0x42, 1, 40, 2);
  const Bytes tiny = stream::short_section(0x70, 8);  // section_length 5
  const Case cases[] = {
      {"unchecked", false, false, {{one, 4}, {one, 4}, {with_bad_crc(one), 4}}},
      {"repeated", true, false, {{one, 3}, {one, 0}, {one, 0}}},
      {"changed", true, false, {{one, 3}, {two, 2}, {next, 3}, {one, 3}}},
      {"version alone", true, false, {{one, 3}, {with_version_bits(one, 0x3E), 1}}},
      {"reserved bits do not count",
       true,
       false,
       {{one, 3},
        {[&] {
           Bytes b = one;
           b[5] ^= 0xC1;
           return b;
         }(),
         0}}},
      {"zero memory", true, false, {{with_zero_crc_field(), 0}}},
      {"too short for a CRC field", true, false, {{tiny, 3}, {tiny, 0}}},
      {"broken is remembered",
       true,
       true,
       {{with_bad_crc(one), 0}, {with_bad_crc(one), 0}, {one, 2}}},
      {"CRC alone", false, true, {{one, 4}, {one, 4}, {with_bad_crc(one), 0}, {one, 4}}},
      {"short form is not verified", false, true, {{stream::short_section(0x70, 40), 4}}},
      {"longest", true, true, {{stream::section(0x42, 1, 4096, 1), 3}}},
  };
  for (const Case& row : cases) {
    SCOPED_TRACE(row.name);
    auto filter = std::make_unique<SectionFilter>();
    filter->ver_chk = row.ver_chk;
    filter->crc_chk = row.crc_chk;
    for (std::size_t i = 0; i < row.steps.size(); i++) {
      std::memcpy(filter->buf, row.steps[i].section.data(), row.steps[i].section.size());
      EXPECT_EQ(section_check(filter.get()), row.steps[i].verdict) << "step " << i;
    }
  }
}

TEST(SectionCheck, LogsUnderItsOwnTagWithTheMaskedVersion) {
  auto filter = std::make_unique<SectionFilter>();
  filter->pid = 0x12;
  filter->table_id = 0x4E;
  filter->ver_chk = TRUE;
  filter->crc_chk = TRUE;
  Bytes section = stream::section(0x4E, 7, 30, 5);
  std::memcpy(filter->buf, section.data(), section.size());
  Log log;
  section_check(filter.get());
  section_check(filter.get());
  std::memcpy(filter->buf, with_bad_crc(section).data(), section.size());
  section_check(filter.get());
  const auto lines = log.take();
  ASSERT_EQ(lines.size(), 3U);
  for (const Log::Line& line : lines) {
    EXPECT_EQ(line.tag, "tvsectioncheck");
    EXPECT_EQ(line.function, "section_check");
  }
  std::uint32_t crc = 0;
  for (std::size_t i = 26; i < 30; i++) crc = crc << 8 | section[i];
  g_autofree gchar* hex = g_strdup_printf("0x%x", crc);
  const std::string field(hex);
  EXPECT_EQ(lines[0].message, "PID[0x12] TID[0x4e]---CRC[Diff]-" + field + " / VER[Diff]-0xa");
  EXPECT_EQ(lines[1].message, "PID[0x12] TID[0x4e]---CRC[SAME]-" + field + " / VER[SAME]-0xa");
  EXPECT_EQ(lines[2].message, "check section: CRC error, pid 18, table_id 78");
  EXPECT_EQ(lines[2].priority, QEL_LOG_ERROR);
}

}  // namespace
}  // namespace vantrel::testing
