// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string_view>

#include "common/byte_reader.h"
#include "common/crc32_mpeg.h"
#include "tests/support/ts_builder.h"

namespace vantrel {
namespace {

using stream::Bytes;

/// The definition of ISO/IEC 13818-1, annex A, bit by bit.
std::uint32_t crc_by_bits(const std::uint8_t* bytes, std::size_t size) {
  std::uint32_t crc = 0xFFFFFFFF;
  for (std::size_t i = 0; i < size * 8; ++i) {
    const std::uint32_t in = bytes[i / 8] >> (7 - i % 8) & 1U;
    crc = (crc << 1) ^ ((crc >> 31 ^ in) != 0 ? 0x04C11DB7U : 0U);
  }
  return crc;
}

struct Vector {
  std::string_view bytes;
  std::uint32_t crc;
};

using namespace std::string_view_literals;

TEST(Crc, DiffersFromThePublishedOne) {
  const Vector vectors[] = {
      {""sv, 0xFFFFFFFF},
      {"123456789"sv, 0x0376E6E7},
      // A PAT of one program with its PMT on 0x1000, without and with its CRC.
      {"\x00\xB0\x0D\x00\x01\xC1\x00\x00\x00\x01\xF0\x00"sv, 0x2AB104B2},
      {"\x00\xB0\x0D\x00\x01\xC1\x00\x00\x00\x01\xF0\x00\x2A\xB1\x04\xB2"sv, 0},
  };
  for (const Vector& each : vectors) {
    EXPECT_EQ(crc32_mpeg(each.bytes.data(), each.bytes.size()), each.crc) << each.bytes;
    EXPECT_EQ(crc32_mpeg_portable(each.bytes.data(), each.bytes.size()), each.crc) << each.bytes;
  }
}

TEST(Crc, OneOfTheTwoWaysIsWrongAtSomeLengthOrAlignment) {
  if (!crc32_mpeg_has_carryless()) GTEST_SKIP() << "no carry-less multiplication on this CPU";
  std::mt19937 random(1);
  Bytes bytes(4096 + 64);
  std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<std::uint8_t>(random()); });
  for (std::size_t size = 0; size <= 4096; size += size < 700 ? 1 : 37) {
    for (std::size_t offset = 0; offset < 64; offset += size < 300 ? 1 : 7) {
      const std::uint8_t* data = bytes.data() + offset;
      const std::uint32_t expected = crc_by_bits(data, size);
      ASSERT_EQ(crc32_mpeg_portable(data, size), expected) << size << " at " << offset;
      ASSERT_EQ(crc32_mpeg_carryless(data, size), expected) << size << " at " << offset;
      ASSERT_EQ(crc32_mpeg(data, size), expected) << size << " at " << offset;
    }
  }
}

TEST(ByteReader, FieldLosesBitsOrTakesItsNeighbours) {
  const std::uint8_t bytes[] = {0xFE, 0xDC, 0xBA, 0x98, 0x76};
  EXPECT_EQ(read_u16(bytes), 0xFEDC);
  EXPECT_EQ(read_u24(bytes), 0xFEDCBAU);
  EXPECT_EQ(read_u32(bytes), 0xFEDCBA98U);
  EXPECT_EQ(read_u32(bytes + 1), 0xDCBA9876U);
  EXPECT_EQ(read_length(bytes), 0xEDC);
  EXPECT_EQ(read_pid(bytes), 0x1EDC);
  constexpr std::size_t kPts = 9;  // where the field is in the packet
  for (int bit = 0; bit < 33; ++bit) {
    const std::uint64_t pts = std::uint64_t{1} << bit;
    EXPECT_EQ(read_timestamp(stream::pes_with_pts(0xe0, pts, 0).data() + kPts), pts) << bit;
  }
}

}  // namespace
}  // namespace vantrel
