// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/receiver/section_matcher.h"

#include <algorithm>
#include <cstring>

namespace qel::receiver {
namespace {

static_assert(DMX_FILTER_SIZE == 16, "two words hold a filter");

std::array<std::uint64_t, 2> load_words(const std::uint8_t* bytes) {
  std::array<std::uint64_t, 2> result;
  std::memcpy(result.data(), bytes, sizeof result);
  return result;
}

}  // namespace

SectionKey::SectionKey(const std::uint8_t* section, std::size_t available) {
  constexpr std::size_t kHeader = 3;  // byte 0 counts, the length bytes do not
  std::array<std::uint8_t, DMX_FILTER_SIZE> bytes;
  bytes.fill(0xff);
  bytes[0] = section[0];
  const std::size_t behind = available > kHeader ? available - kHeader : 0;
  std::memcpy(bytes.data() + 1, section + kHeader, std::min(behind, bytes.size() - 1));
  words_ = load_words(bytes.data());
}

SectionMatcher::SectionMatcher(const dmx_filter& filter) : value_(load_words(filter.filter)) {
  const Words mask = load_words(filter.mask);
  const Words mode = load_words(filter.mode);
  for (std::size_t i = 0; i < mask.size(); ++i) {
    equal_[i] = mask[i] & ~mode[i];
    differ_[i] = mask[i] & mode[i];
    any_differs_ |= differ_[i] != 0;
  }
}

}  // namespace qel::receiver
