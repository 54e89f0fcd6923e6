// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace softdec {

/// The payload of one PES packet (ISO/IEC 13818-1, 2.4.3.6), with the times of
/// its header in units of 90 kHz, 33 bits.
struct PesUnit {
  std::vector<std::uint8_t> payload;
  std::optional<std::uint64_t> pts;
  std::optional<std::uint64_t> dts;
  bool discont = false;  // something before it is missing

  /// The time that grows from unit to unit.
  [[nodiscard]] std::optional<std::uint64_t> order() const { return dts ? dts : pts; }
};

/// Cuts the bytes of a decoder port into PES packets. A packet ends where its
/// length says, or where the next header of the stream begins: packets of video
/// may have no length, and those from which TS packets were lost are shorter
/// than they say.
class PesParser {
 public:
  /// Adds bytes and gives the packets that are whole now.
  std::vector<PesUnit> add(const std::uint8_t* data, std::size_t size);
  /// The end of the stream: what is left is the last packet.
  std::vector<PesUnit> finish();
  /// Drops what is half assembled; the next packet is marked.
  void reset();

 private:
  [[nodiscard]] std::size_t size() const { return pending_.size() - begin_; }
  [[nodiscard]] const std::uint8_t* at(std::size_t offset) const {
    return pending_.data() + begin_ + offset;
  }
  [[nodiscard]] bool is_header(std::size_t offset) const;
  bool find_next();
  bool step(std::vector<PesUnit>& units);
  bool skip_to_header(std::vector<PesUnit>& units);
  void take_loose(std::size_t length, std::vector<PesUnit>& units);
  void take(std::size_t length, std::vector<PesUnit>& units);

  std::vector<std::uint8_t> pending_;
  std::size_t begin_ = 0;     // in pending_, of the packet being assembled
  std::size_t searched_ = 0;  // from begin_, up to where no header begins
  bool lost_ = true;          // the next packet does not follow the last one
};

}  // namespace softdec
