// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <linux/dvb/dmx.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace qel::receiver {

/// The 16 bytes of a section that filters look at: byte 0 and bytes 3 to 17,
/// as two words. Past the section's end stands what follows in the stream.
class SectionKey {
 public:
  /// `available` bytes can be read at `section`, its end passed or not.
  SectionKey(const std::uint8_t* section, std::size_t available);

  [[nodiscard]] const std::array<std::uint64_t, 2>& words() const { return words_; }

 private:
  std::array<std::uint64_t, 2> words_;
};

/// A section filter's bytes, prepared for comparing.
class SectionMatcher {
 public:
  SectionMatcher() = default;
  explicit SectionMatcher(const dmx_filter& filter);

  /// All bits with mode 0 equal; of those with mode 1, if any, one differs.
  [[nodiscard]] bool matches(const SectionKey& key) const {
    const std::uint64_t low = key.words()[0] ^ value_[0];
    const std::uint64_t high = key.words()[1] ^ value_[1];
    if (((low & equal_[0]) | (high & equal_[1])) != 0) return false;
    return !any_differs_ || ((low & differ_[0]) | (high & differ_[1])) != 0;
  }

 private:
  using Words = std::array<std::uint64_t, 2>;
  Words value_{};
  Words equal_{};   // bits that must be equal
  Words differ_{};  // bits of which one must differ
  bool any_differs_ = false;
};

}  // namespace qel::receiver
