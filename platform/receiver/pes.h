// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

namespace qel::receiver {

/// Follows the PES packets of one PID for one filter.
class PesUnit {
 public:
  /// What a payload brought.
  struct Step {
    std::size_t bytes;  // of the payload belong to the PES packet
    bool completes;     // its declared length is reached with them
  };

  /// Goes on by one payload.
  Step take(const std::uint8_t* payload, std::size_t size, bool unit_start);

  /// Goes on by payloads of together `size` bytes, at most rest(), none of which
  /// begins a unit; behind the header of one that is open.
  void advance(std::size_t size);
  /// Bytes that may come without being looked at: what is left of the declared length;
  /// none before that has been read; SIZE_MAX where none is declared or it is reached.
  [[nodiscard]] std::size_t rest() const {
    if (!open_) return SIZE_MAX;
    if (taken_ < kHeader) return 0;
    return total_ != 0 ? total_ - taken_ : SIZE_MAX;
  }

  /// True from a payload unit start until the declared length is reached.
  [[nodiscard]] bool open() const { return open_; }
  /// Bytes of the packet in progress, header included; 0 where that is not known.
  [[nodiscard]] std::size_t total() const { return total_; }

 private:
  static constexpr std::size_t kHeader = 6;

  void gather(const std::uint8_t* payload, std::size_t size);
  [[nodiscard]] std::size_t declared_size() const;

  bool open_ = false;
  std::size_t taken_ = 0;
  std::size_t total_ = 0;  // 0: unbounded, or not known yet
  std::array<std::uint8_t, kHeader> header_{};
};

// Once per packet and filter.
inline PesUnit::Step PesUnit::take(const std::uint8_t* payload, std::size_t size, bool unit_start) {
  if (unit_start) {
    *this = {};
    open_ = true;
  }
  if (!open_) return {0, false};

  if (taken_ < kHeader) gather(payload, size);
  const std::size_t bytes = total_ != 0 ? std::min(size, total_ - taken_) : size;
  advance(bytes);
  return {bytes, !open_};
}

inline void PesUnit::advance(std::size_t size) {
  taken_ += size;
  if (total_ != 0 && taken_ == total_) open_ = false;
}

}  // namespace qel::receiver
