// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/receiver/temi.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>

#include "tests/support/ts_builder.h"

namespace {

using qel::receiver::append_temi;
using qel::receiver::kPacketSize;
using qel::receiver::Packet;
using stream::Bytes;
using stream::operator+;

const Bytes kTimeline = {0x04, 3, 0x80, 1, 2};
const Bytes kLocation = {0x05, 1, 9};
const Bytes kBaseUrl = {0x06, 0};
const Bytes kOther = {0x07, 2, 5, 5};

Bytes counted(const Bytes& bytes) { return Bytes{static_cast<std::uint8_t>(bytes.size())} + bytes; }

/// A packet of `header`'s adaptation bits whose adaptation field begins as
/// given, on the heap and no longer than it is, so that an overrun is seen.
std::vector<std::uint8_t> extracted(const Bytes& field, std::uint8_t control = 0x30) {
  const auto packet = std::make_unique<std::uint8_t[]>(kPacketSize);
  std::memset(packet.get(), 0x04, kPacketSize);
  const Bytes header = Bytes{0x47, 0x01, 0x00, control} + field;
  std::memcpy(packet.get(), header.data(), std::min(header.size(), kPacketSize));
  Bytes out;
  append_temi(Packet(packet.get()), out);
  return out;
}

// What may stand before the descriptors, and must be passed over exactly.
struct Before {
  std::uint8_t flags;            // of the adaptation field, its extension's aside
  Bytes optional;                // what they announce
  std::uint8_t extension_flags;  // of the extension
  Bytes extension_optional;
};

const Before kBefore[] = {
    {0x00, {}, 0x0f, {}},
    {0x10, Bytes(6, 4), 0x0f, {}},
    {0x08, Bytes(6, 4), 0x0f, {}},
    {0x04, {4}, 0x0f, {}},
    {0x02, {0}, 0x0f, {}},
    {0x02, {3, 4, 4, 4}, 0x0f, {}},
    {0xfe, Bytes(13, 4) + Bytes{3, 4, 4, 4}, 0x0f, {}},
    {0x00, {}, 0x8f, Bytes(2, 4)},
    {0x00, {}, 0x4f, Bytes(3, 4)},
    {0x00, {}, 0x2f, Bytes(5, 4)},
    {0xfe, Bytes(13, 4) + Bytes{0}, 0xe0, Bytes(10, 4)},
};

TEST(Temi, LosesItsPlaceBehindAnOptionalPart) {
  for (const Before& row : kBefore) {
    const Bytes extension = Bytes{row.extension_flags} + row.extension_optional + kTimeline +
                            kOther + kBaseUrl + kLocation;
    const Bytes field =
        Bytes{static_cast<std::uint8_t>(row.flags | 1)} + row.optional + counted(extension);
    const Bytes wanted = kTimeline + kBaseUrl + kLocation;
    EXPECT_EQ(extracted(counted(field)), wanted)
        << int{row.flags} << ' ' << int{row.extension_flags};
    // Stuffing behind the extension.
    EXPECT_EQ(extracted(counted(field + Bytes(20, 0xff))), wanted);
  }
}

TEST(Temi, ReplacesWhatIsInTheBuffer) {
  const Bytes packet = Bytes{0x47, 0x01, 0x00, 0x20} +
                       counted(Bytes{1} + counted(Bytes{0x0f} + kLocation)) + Bytes(188, 0xff);
  Bytes out = kTimeline;
  append_temi(Packet(packet.data()), out);
  EXPECT_EQ(out, kTimeline + kLocation);
}

struct Refused {
  const char* fault;
  Bytes field;
  std::uint8_t control;
};

const Bytes kGood = counted(Bytes{1} + counted(Bytes{0x0f} + kTimeline));

const Refused kRefused[] = {
    {"payload taken for an adaptation field", kGood, 0x10},
    {"empty field", {0}, 0x20},
    {"no extension", counted(Bytes{0} + counted(Bytes{0x0f} + kTimeline)), 0x20},
    {"an older extension, all reserved bits set",
     counted(Bytes{1} + counted(Bytes{0x1f} + kTimeline)), 0x20},
    {"field larger than a packet", Bytes{184, 1} + counted(Bytes{0x0f} + kTimeline), 0x20},
    {"field of 255 bytes", Bytes{255, 1} + counted(Bytes{0x0f} + kTimeline), 0x20},
    {"extension behind the field's end", Bytes{1, 1, 6, 0x0f} + kTimeline, 0x30},
    {"extension larger than the field", Bytes{7, 1, 7, 0x0f} + kTimeline, 0x30},
    {"extension of no bytes", Bytes{7, 1, 0, 0x0f} + kTimeline, 0x30},
    {"private data larger than the field", Bytes{10, 3, 9, 1, 6, 0x0f} + kTimeline, 0x30},
    {"private data length missing", Bytes{1, 3, 0, 6, 0x0f} + kTimeline, 0x30},
    {"PCR missing", Bytes{1, 0x11, 6, 0x0f} + kTimeline, 0x30},
    {"parts larger than the extension", Bytes{9, 1, 7, 0xef} + kTimeline, 0x30},
    {"descriptor larger than the extension", Bytes{8, 1, 6, 0x0f, 4, 4, 1, 2, 3, 4}, 0x30},
    {"descriptor without a length", Bytes{3, 1, 2, 0x0f, 4, 0}, 0x30},
};

TEST(Temi, TakesWhatIsNotThere) {
  ASSERT_EQ(extracted(kGood), kTimeline);
  for (const Refused& row : kRefused)
    EXPECT_EQ(extracted(row.field, row.control), Bytes()) << row.fault;
}

TEST(Temi, DropsDescriptorsBeforeABrokenOne) {
  EXPECT_EQ(extracted(counted(Bytes{1} + counted(Bytes{0x0f} + kTimeline + Bytes{5, 200, 1}))),
            kTimeline);
}

// Under the address sanitizer, which sees a read outside of the packet.
TEST(Temi, ReadsOutsideOfAPacketOfNoise) {
  std::mt19937 random(1);  // NOLINT: the same every time
  for (int i = 0; i < 50000; ++i) {
    Bytes field(184);
    for (std::uint8_t& byte : field) byte = static_cast<std::uint8_t>(random());
    field[0] = static_cast<std::uint8_t>(i);
    field[1] |= 1;
    const Bytes out = extracted(field);
    for (std::size_t at = 0; at < out.size(); at += 2U + out[at + 1]) {
      ASSERT_TRUE(out[at] >= 4 && out[at] <= 6);
      ASSERT_LE(at + 2 + out[at + 1], out.size());
    }
  }
}

}  // namespace
