// SPDX-License-Identifier: LGPL-2.1-or-later
//
// Streams that are damaged beyond sync: what comes out must still be whole.
#include <gtest/gtest.h>
#include <qel/receiver.h>

#include "common/crc32_mpeg.h"
#include "tests/receiver_fuzz/random_stream.h"
#include "tests/support/test_node.h"

namespace {

using fuzz::Bytes;
using fuzz::Random;
using vantrel::test::TestNode;

constexpr unsigned kChecked = DMX_IMMEDIATE_START | DMX_CHECK_CRC;

/// Cuts bytes out, puts noise in, and overwrites some.
Bytes torn(Bytes stream, Random& random) {
  for (std::size_t i = stream.size() / 5000; i > 0; --i) {
    const std::size_t at = random.below(stream.size() - 2000);
    const auto place = stream.begin() + static_cast<std::ptrdiff_t>(at);
    const std::size_t count = random.below(random.one_in(3) ? 1500 : 20);
    switch (random.below(3)) {
      case 0:
        stream.erase(place, place + static_cast<std::ptrdiff_t>(count));
        break;
      case 1: {
        const Bytes noise = random.bytes(count);
        stream.insert(place, noise.begin(), noise.end());
        break;
      }
      default:
        std::fill_n(place, count, std::uint8_t{0x47});
    }
  }
  return stream;
}

void feed_in_pieces(const Bytes& stream, Random& random) {
  for (std::size_t at = 0; at < stream.size();) {
    const std::size_t count =
        std::min(stream.size() - at, random.below(random.one_in(4) ? 60000 : 400));
    const Bytes piece = stream::slice(stream, at, count);  // so that overruns are seen
    ASSERT_EQ(qel_receiver_feed(2, DMX_IN_FRONTEND, piece.data(), piece.size()), 0);
    at += count;
  }
}

void expect_whole_sections(TestNode& node) {
  for (Bytes bytes = node.read(); !bytes.empty(); bytes = node.read()) {
    ASSERT_GE(bytes.size(), 3U);
    ASSERT_EQ(bytes.size(), 3U + ((bytes[1] & 0x0fU) << 8 | bytes[2]));
    if (bytes[1] & 0x80) {
      ASSERT_EQ(vantrel::crc32_mpeg(bytes.data(), bytes.size()), 0U);
    }
  }
}

void expect_whole_packets(TestNode& node) {
  for (Bytes bytes = node.read(188 * 100); !bytes.empty(); bytes = node.read(188 * 100)) {
    ASSERT_EQ(bytes.size() % 188, 0U);
    for (std::size_t at = 0; at < bytes.size(); at += 188) ASSERT_EQ(bytes[at], 0x47);
  }
}

void expect_pes_no_longer_than_it_says(TestNode& node) {
  for (Bytes bytes = node.read(); !bytes.empty(); bytes = node.read()) {
    if (bytes.size() < 6 || bytes[0] != 0 || bytes[1] != 0 || bytes[2] != 1) continue;
    const std::size_t length = std::size_t{bytes[4]} << 8 | bytes[5];
    if (length >= 3) {
      ASSERT_LE(bytes.size(), 6 + length);
    }
  }
}

void expect_whole_descriptors(TestNode& node) {
  const Bytes all = node.read_all();
  for (std::size_t at = 0; at < all.size(); at += 2U + all[at + 1]) {
    ASSERT_TRUE(all[at] >= 4 && all[at] <= 6);
    ASSERT_LE(at + 2, all.size());
    ASSERT_LE(at + 2 + all[at + 1], all.size());
  }
}

void expect_counters_add_up() {
  qel_input_counters counters;
  qel_receiver_get_input_counters(2, DMX_IN_FRONTEND, &counters);
  EXPECT_GT(counters.packets, 0U);
  EXPECT_LE(counters.packets * 188 + counters.skipped_bytes, counters.bytes);
  std::uint64_t packets = 0;
  for (unsigned pid = 0; pid < 0x2000; ++pid) {
    qel_pid_counters each;
    qel_receiver_get_pid_counters(2, DMX_IN_FRONTEND, pid, &each);
    packets += each.packets;
  }
  EXPECT_EQ(packets + counters.transport_errors, counters.packets);
}

TEST(ReceiverFuzz, NoiseComesOutAsData) {
  qel_receiver_set_pacing(2, 0);
  for (unsigned seed = 1; seed <= 10; ++seed) {
    SCOPED_TRACE(seed);
    vantrel::test::flush(2, DMX_IN_FRONTEND);
    qel_receiver_reset_counters(2);
    Random random(seed);
    fuzz::RandomStream source(seed, {.flipped_bit = 5, .lost = 30, .repeated = 30});
    std::vector<TestNode> sections;
    for (unsigned i = 0; i < fuzz::kSectionPids; ++i) {
      sections.emplace_back("qel_demux2");
      ASSERT_EQ(sections.back().section(fuzz::kFirstSectionPid + i, kChecked), 0);
    }
    TestNode tap("qel_demux2"), packets("qel_demux2"), temi("qel_temi2");
    ASSERT_EQ(tap.pes(fuzz::kFirstPesPid, DMX_OUT_TAP, DMX_PES_OTHER, DMX_IN_FRONTEND), 0);
    packets.buffer(188 * 100);
    ASSERT_EQ(packets.pes(0x2000, DMX_OUT_TAP, DMX_PES_OTHER, DMX_IN_FRONTEND), 0);
    ASSERT_EQ(temi.control(KWRX_DMX_START), 0);
    for (int part = 0; part < 10; ++part) {
      feed_in_pieces(torn(source.packets(400), random), random);
      feed_in_pieces(random.bytes(random.below(5000)), random);
      for (TestNode& node : sections) expect_whole_sections(node);
      expect_whole_packets(packets);
      expect_pes_no_longer_than_it_says(tap);
      expect_whole_descriptors(temi);
    }
    expect_counters_add_up();
  }
}

TEST(ReceiverFuzz, StreamAmidNoiseIsNotFound) {
  constexpr unsigned kPid = 0x55;
  qel_receiver_set_pacing(2, 0);
  for (unsigned seed = 1; seed <= 40; ++seed) {
    Random random(seed);
    stream::Multiplex mux;
    std::vector<Bytes> list;
    for (std::uint16_t i = 0; i < 10; ++i) list.push_back(stream::section(0x42, i, 150));
    Bytes packets = mux.sections(kPid, list);
    if (random.one_in(3))
      packets = stream::with_parity(packets);
    else if (random.one_in(2))
      packets = stream::with_timestamps(packets);
    TestNode node("qel_demux2");
    ASSERT_EQ(node.section(kPid, kChecked), 0);
    feed_in_pieces(stream::join({random.bytes(random.below(3000)), packets, random.bytes(3000)}),
                   random);
    int found = 0;
    while (!node.read().empty()) ++found;
    // The first packet may be taken for noise.
    EXPECT_GE(found, 8) << "seed " << seed;
  }
}

}  // namespace
