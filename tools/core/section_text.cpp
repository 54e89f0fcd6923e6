// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/core/section_text.h"

#include <array>
#include <cstdio>

#include "common/crc32_mpeg.h"
#include "tools/core/hex.h"
#include "tools/core/psi.h"

namespace tools {
namespace {

constexpr std::size_t kLongHeader = 8;
/// The time offset table has a CRC and says that it has none.
constexpr unsigned kTot = 0x73;

}  // namespace

SectionHeader::SectionHeader(std::string_view section) {
  const auto byte = [&](std::size_t at) { return static_cast<std::uint8_t>(section[at]); };
  table_id = byte(0);
  long_form = (byte(1) & 0x80) != 0 && section.size() >= kLongHeader;
  if (long_form || table_id == kTot)
    crc = vantrel::crc32_mpeg(section.data(), section.size()) == 0 ? Crc::kGood : Crc::kBad;
  if (!long_form) return;
  extension = byte(3) << 8U | byte(4);
  version = byte(5) >> 1 & 0x1F;
  current = (byte(5) & 1) != 0;
  number = byte(6);
  last_number = byte(7);
}

const char* crc_name(SectionHeader::Crc crc) {
  constexpr std::array<const char*, 3> kNames = {"none", "good", "bad"};
  return kNames[static_cast<std::size_t>(crc)];
}

std::string describe_section(unsigned pid, std::string_view section) {
  const SectionHeader header(section);
  std::array<char, 160> text;
  std::snprintf(text.data(), text.size(), "PID %u (0x%04x)  %s (0x%02x)", pid, pid,
                table_name(header.table_id).c_str(), header.table_id);
  std::string line = text.data();
  if (header.long_form) {
    std::snprintf(text.data(), text.size(), "  extension 0x%04x  version %u%s  section %u/%u",
                  header.extension, header.version, header.current ? "" : " (next)",
                  header.number, header.last_number);
    line += text.data();
  }
  return line + "  " + std::to_string(section.size()) + " bytes  CRC " + crc_name(header.crc);
}

void add_section(Json& json, unsigned pid, std::string_view section) {
  const SectionHeader header(section);
  json.number("pid", pid)
      .number("table_id", header.table_id)
      .text("table", table_name(header.table_id));
  if (header.long_form)
    json.number("extension", header.extension)
        .number("version", header.version)
        .flag("current", header.current)
        .number("section", header.number)
        .number("last_section", header.last_number);
  json.text("crc", crc_name(header.crc)).number("size", section.size());
  json.text("data", to_hex(section));
}

bool SectionMemory::is_new(unsigned pid, std::string_view section) {
  const SectionHeader header(section);
  std::string place = std::to_string(pid) + '/' + std::to_string(header.table_id) + '/' +
                      std::to_string(header.extension) + '/' + std::to_string(header.number) + '/';
  // Of an EIT a service_id names the sub-table with the stream that it is on.
  if (header.table_id >= 0x4E && header.table_id <= 0x6F && section.size() > 12)
    place += section.substr(8, 4);
  std::string& last = last_[place];
  if (last == section) return false;
  last = section;
  return true;
}

void SectionCounts::add(unsigned pid, std::string_view section) {
  const SectionHeader header(section);
  Count& count = counts_[{pid, header.table_id}];
  count.sections++;
  count.bytes += section.size();
  const std::array<std::uint64_t*, 3> by_verdict = {&count.without_crc, &count.good_crc,
                                                    &count.bad_crc};
  (*by_verdict[static_cast<std::size_t>(header.crc)])++;
}

}  // namespace tools
