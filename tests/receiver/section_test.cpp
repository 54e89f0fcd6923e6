// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tests/receiver/fixture.h"

namespace {

using stream::Bytes;
using stream::section;
using stream::short_section;
using Sizes = std::vector<int>;

constexpr unsigned kSectionPid = 0x12;

class SectionTest : public ReceiverTest {};

TEST_F(SectionTest, SectionsOfAnySizeAndPackingComeOutWhole) {
  // From every size in steps, so that headers and ends fall on every place in
  // a packet, its last byte included.
  for (std::size_t first = 3; first < 400; first += 7) {
    std::vector<Bytes> sent;
    for (std::size_t i = 0; i < 12; ++i) {
      sent.push_back(short_section(0x50, first + i * i));
      sent.push_back(section(0x42, 1, 180 + i));
    }
    TestNode node = section_node(kSectionPid, 65536);
    feed(mux.sections(kSectionPid, sent));
    for (const Bytes& each : sent) ASSERT_EQ(node.read(), each) << "from size " << first;
    EXPECT_TRUE(node.drain().empty());
  }
}

TEST_F(SectionTest, LongerSectionThanAllowedIsNotCounted) {
  TestNode node = section_node(kSectionPid);
  feed(mux.sections(kSectionPid, {short_section(0x50, 4097)}));
  EXPECT_EQ(pid_counters(kSectionPid).section_errors, 1U);
}

struct DamageCase {
  const char* name;
  std::function<void(std::vector<Bytes>&)> damage;  // of the packets of a section of 500
  Sizes expected;                                   // and then one of 40
};

const DamageCase kDamageCases[] = {
    {"none", [](auto&) {}, {500, 40}},
    {"start lost", [](auto& p) { p.erase(p.begin()); }, {40}},
    {"middle three times", [](auto& p) { p.insert(p.begin() + 1, 2, p[1]); }, {40}},
    {"no adaptation and no payload", [](auto& p) { p[1][3] &= 0xcf; }, {40}},
};

std::vector<Bytes> packets_of(const Bytes& bytes) {
  std::vector<Bytes> packets;
  for (std::size_t at = 0; at < bytes.size(); at += 188) {
    packets.push_back(stream::slice(bytes, at, 188));
  }
  return packets;
}

TEST_F(SectionTest, DamagedSectionIsDeliveredOrTheNextOneLost) {
  for (const DamageCase& each : kDamageCases) {
    TestNode node = section_node(kSectionPid);
    std::vector<Bytes> packets = packets_of(mux.sections(kSectionPid, {section(0x42, 1, 500)}));
    ASSERT_EQ(packets.size(), 3U);
    each.damage(packets);
    for (const Bytes& packet : packets) feed(packet);
    feed(mux.sections(kSectionPid, {section(0x42, 1, 40)}));
    EXPECT_EQ(node.drain(), each.expected) << each.name;
  }
}

TEST_F(SectionTest, AnnouncedDiscontinuityIsCountedAsAnError) {
  TestNode node = section_node(kSectionPid);
  feed(mux.sections(kSectionPid, {section(0x42, 1, 20)}));
  mux.skip(kSectionPid, 5);
  const stream::Header header{.unit_start = true, .discontinuity = true};
  feed(mux.packet(kSectionPid, Bytes{0} + section(0x42, 1, 30), header));
  mux.skip(kSectionPid, 5);
  feed(mux.sections(kSectionPid, {section(0x42, 1, 40)}));
  EXPECT_EQ(node.drain(), (Sizes{20, 30, 40}));
  EXPECT_EQ(input_counters().discontinuities, 1U);
  EXPECT_EQ(pid_counters(kSectionPid).discontinuities, 1U);
}

TEST_F(SectionTest, OneNodesCrcCheckDecidesForAnother) {
  TestNode checked("qel_demux0"), unchecked("qel_demux0");
  checked.section(kSectionPid, DMX_IMMEDIATE_START | DMX_CHECK_CRC);
  unchecked.section(kSectionPid);
  Bytes bad = section(0x42, 1, 20);
  bad[10] ^= 1;
  feed(mux.sections(kSectionPid, {bad, section(0x42, 1, 21), short_section(0x70, 12)}));
  EXPECT_EQ(checked.drain(), (Sizes{21, 12}));
  EXPECT_EQ(unchecked.drain(), (Sizes{20, 21, 12}));
  EXPECT_EQ(node_counters(checked).crc_errors, 1U);
  EXPECT_EQ(node_counters(unchecked).crc_errors, 0U);
  EXPECT_EQ(pid_counters(kSectionPid).crc_errors, 1U);
  EXPECT_EQ(pid_counters(kSectionPid).sections, 3U);
}

TEST_F(SectionTest, InputsMixTheirSectionsInProgress) {
  TestNode node = section_node(kSectionPid);
  stream::Multiplex other;
  const std::vector<Bytes> a = packets_of(mux.sections(kSectionPid, {section(0x42, 1, 500)}));
  const std::vector<Bytes> b = packets_of(other.sections(kSectionPid, {section(0x42, 2, 501)}));
  for (std::size_t i = 0; i < a.size(); ++i) {
    feed(a[i], DMX_IN_DVR);
    feed(b[i], DMX_IN_FRONTEND);
  }
  EXPECT_EQ(node.read(), section(0x42, 1, 500));
  EXPECT_EQ(node.read(), section(0x42, 2, 501));
}

TEST_F(SectionTest, TimeoutWithoutAThreadEndsTheProgramOrRunsWithoutLimit) {
  TestNode node("qel_demux0");
  {
    const NoThreads no_threads;
    EXPECT_EQ(node.section(kSectionPid, DMX_IMMEDIATE_START, {}, 20), -EAGAIN);
    feed(mux.sections(kSectionPid, {section(0x42, 1, 20)}));
    EXPECT_TRUE(node.drain().empty());
  }
  EXPECT_EQ(node.control(KWRX_DMX_START), 0);
  ASSERT_TRUE(node.readable(10000));
  EXPECT_EQ(node.drain(), Sizes{-ETIMEDOUT});
}

}  // namespace
