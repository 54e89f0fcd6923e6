// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tools {

/// An event of the programme guide. Texts are UTF-8, whatever the broadcaster
/// sent.
struct Event {
  unsigned id = 0;
  std::int64_t start = 0;      // seconds since 1970, UTC; 0 when undefined
  std::uint32_t duration = 0;  // seconds
  unsigned running_status = 0;
  bool scrambled = false;
  bool undecoded = false;  // its texts are in ARIB's characters, and left out
  std::string language;
  std::string title;
  std::string text;
  std::string extended;
};

/// The service that events are of.
struct ServiceKey {
  unsigned original_network_id = 0;
  unsigned transport_stream_id = 0;
  unsigned service_id = 0;

  auto operator<=>(const ServiceKey&) const = default;
};

/// The guide of one service.
struct Guide {
  bool actual = false;  // of this transport stream
  std::optional<Event> present;
  std::optional<Event> following;
  std::vector<Event> schedule;  // by start
  unsigned missing = 0;         // sections that have not come by; segments count as one
};

}  // namespace tools
