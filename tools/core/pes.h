// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tools {

/// A PES stream, cut into its packets.
class PesParser {
 public:
  /// `keep` bytes of payload are kept at most.
  explicit PesParser(std::size_t keep) : keep_(keep) {}

  void add(std::string_view data);
  /// Takes what is left as the last packet.
  void finish();

  [[nodiscard]] std::uint64_t packets() const { return packets_; }
  [[nodiscard]] std::optional<std::uint64_t> first_pts() const { return first_pts_; }
  [[nodiscard]] std::optional<std::uint64_t> last_pts() const { return last_pts_; }
  /// The elementary stream, from its beginning.
  [[nodiscard]] const std::string& payload() const { return payload_; }

 private:
  void take(std::size_t size);

  std::size_t keep_;
  std::string pending_;
  std::size_t searched_ = 0;  // of pending_, no packet begins there
  std::string payload_;
  std::uint64_t packets_ = 0;
  std::optional<std::uint64_t> first_pts_;
  std::optional<std::uint64_t> last_pts_;
};

/// Presentation time stamp of a PES packet, in 90 kHz.
std::optional<std::uint64_t> pts_of(std::string_view packet);

}  // namespace tools
