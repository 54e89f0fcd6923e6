// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

namespace analysis {

/// A section and the packets that brought it.
struct Section {
  std::span<const std::uint8_t> bytes;
  std::uint64_t first_packet;
  std::uint64_t last_packet;
};

/// Puts the sections of one PID together (ISO/IEC 13818-1, clause 2.4.4).
class SectionAssembler {
 public:
  using Take = std::function<void(const Section&)>;

  /// The payload of the PID's next packet. Calls `take` for every section that
  /// it completes; the bytes are good during the call.
  void add(std::span<const std::uint8_t> payload, bool unit_start, std::uint64_t packet,
           const Take& take);
  /// What comes next does not follow what came last.
  void reset();

 private:
  void append(std::span<const std::uint8_t> bytes, std::uint64_t packet, const Take& take);

  std::vector<std::uint8_t> pending_;
  bool synced_ = false;  // pending_ begins with a section, or is empty where one may begin
  std::uint64_t first_packet_ = 0;  // of the section that pending_ begins with
};

}  // namespace analysis
