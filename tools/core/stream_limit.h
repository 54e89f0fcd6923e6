// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "tools/analysis/packet_counts.h"
#include "tools/core/deadline.h"

namespace tools {

/// A limit on how much of a stream is taken, by the stream's own clocks: ten
/// seconds of a file are ten seconds of its programme, however fast it is read.
/// What is live ends by our clock too, should its own stand.
class StreamLimit {
 public:
  StreamLimit(std::optional<double> seconds, unsigned packet_size, bool live)
      : seconds_(seconds), packet_size_(packet_size), live_(live), rates_(packet_size) {}

  /// How many of these bytes, which come next, are within the limit.
  std::size_t take(std::span<const std::uint8_t> data);
  [[nodiscard]] bool is_over() const;

 private:
  std::optional<double> seconds_;
  unsigned packet_size_;
  bool live_;
  analysis::PacketCounts rates_;
  Deadline since_begin_{std::nullopt};
};

}  // namespace tools
