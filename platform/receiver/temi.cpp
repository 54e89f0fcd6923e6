// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/receiver/temi.h"

#include <array>
#include <cstddef>
#include <span>

namespace qel::receiver {
namespace {

using Bytes = std::span<const std::uint8_t>;

struct OptionalPart {
  std::uint8_t flag;
  std::uint8_t size;
};

// Of the adaptation field, in stream order: PCR, OPCR, splice_countdown.
constexpr std::array<OptionalPart, 3> kFieldParts = {{{0x10, 6}, {0x08, 6}, {0x04, 1}}};
constexpr std::uint8_t kPrivateData = 0x02;
constexpr std::uint8_t kExtension = 0x01;

// Of its extension: ltw, piecewise_rate, seamless_splice.
constexpr std::array<OptionalPart, 3> kExtensionParts = {{{0x80, 2}, {0x40, 3}, {0x20, 5}}};
constexpr std::uint8_t kAfDescriptorNotPresent = 0x10;

constexpr std::uint8_t kTimelineTag = 0x04;
constexpr std::uint8_t kBaseUrlTag = 0x06;

/// What is left behind `size` bytes; nothing if there are not as many.
Bytes behind(Bytes bytes, std::size_t size) {
  return size <= bytes.size() ? bytes.subspan(size) : Bytes();
}

/// The bytes that a length byte in front announces; nothing if some are missing.
Bytes counted(Bytes bytes) {
  if (bytes.empty() || bytes[0] >= bytes.size()) return {};
  return bytes.subspan(1, bytes[0]);
}

/// Passes over a flag byte and the parts that it announces.
Bytes behind_parts(Bytes bytes, std::span<const OptionalPart> parts) {
  std::size_t size = 1;
  for (const OptionalPart& part : parts) size += (bytes[0] & part.flag) ? part.size : 0;
  return behind(bytes, size);
}

/// The adaptation field extension from its flags on.
Bytes extension(const Packet& packet) {
  if (!packet.has_flags()) return {};
  const Bytes field = counted({packet.bytes() + 4, kPacketSize - 4});
  if (field.empty() || !(field[0] & kExtension)) return {};
  Bytes rest = behind_parts(field, kFieldParts);
  if (field[0] & kPrivateData) {
    if (rest.empty()) return {};
    rest = behind(rest, std::size_t{1} + rest[0]);
  }
  return counted(rest);
}

}  // namespace

void append_temi(const Packet& packet, std::vector<std::uint8_t>& descriptors) {
  const Bytes flags = extension(packet);
  if (flags.empty() || (flags[0] & kAfDescriptorNotPresent)) return;
  constexpr std::size_t kHeader = 2;  // tag and length
  Bytes rest = behind_parts(flags, kExtensionParts);
  while (rest.size() >= kHeader && rest.size() >= kHeader + rest[1]) {
    const Bytes descriptor = rest.first(kHeader + rest[1]);
    if (descriptor[0] >= kTimelineTag && descriptor[0] <= kBaseUrlTag) {
      descriptors.insert(descriptors.end(), descriptor.begin(), descriptor.end());
    }
    rest = rest.subspan(descriptor.size());
  }
}

}  // namespace qel::receiver
