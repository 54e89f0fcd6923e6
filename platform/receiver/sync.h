// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstddef>
#include <cstdint>

namespace qel::receiver {

/// Finds packet boundaries in data of any origin.
///
/// Packets of 188 bytes follow each other directly, or with 16 bytes (parity)
/// or 4 (a time stamp) between them. Sync once found is kept until a boundary
/// has no sync byte.
class Sync {
 public:
  struct Result {
    std::size_t skipped;  // bytes before the boundary, or before the undecided rest
    bool found;
  };

  [[nodiscard]] bool locked() const { return locked_; }
  /// Distance between packets.
  [[nodiscard]] std::size_t stride() const { return stride_; }

  /// Looks for a packet in `size` bytes, of which those from `fresh` on came
  /// with the present call. Amid junk a packet is believed when three others
  /// follow, or when whole packets go on to the end of what came.
  Result search(const std::uint8_t* data, std::size_t size, std::size_t fresh);
  void lose();
  void reset() { *this = Sync(); }

 private:
  enum class Verdict { kRejected, kUndecided, kConfirmed };

  Verdict judge(const std::uint8_t* data, std::size_t size, std::size_t& stride) const;

  std::size_t stride_ = 188;
  std::size_t passed_ = 0;  // bytes passed over since the last packet
  bool locked_ = false;
  bool had_packet_ = false;
};

}  // namespace qel::receiver
