// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace tools {

using Bytes = std::vector<std::uint8_t>;

/// The one service of a stream of our own making.
struct ServiceInfo {
  std::uint16_t transport_stream_id;
  std::uint16_t service_id;
  std::string network;
  std::string provider;
  std::string name;
  std::string present_event;
  std::string following_event;
};

/// Service information tables (ETSI EN 300 468) of one service, as packets: CAT,
/// NIT, SDT, EIT present/following and TDT.
class SiWriter {
 public:
  explicit SiWriter(const ServiceInfo& info);

  /// All tables once, their continuity counters going on from the last time.
  Bytes packets();

 private:
  struct Table {
    unsigned pid;
    Bytes sections;
  };

  void append_table(Bytes* out, const Table& table);

  std::vector<Table> tables_;
  std::map<unsigned, unsigned> counters_;
};

}  // namespace tools
