// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tests/receiver/fixture.h"

namespace {

using stream::Bytes;
using stream::section;
using stream::short_section;
using Sizes = std::vector<int>;

constexpr unsigned kSectionPid = 0x12;

class SectionTest : public ReceiverTest {};

struct MatchCase {
  const char* name;
  Bytes filter, mask, mode;
  std::vector<int> passing;  // of kMatched, by index
};

// table id, table id extension, version
const std::vector<Bytes> kMatched = {section(0x42, 0x1122, 20, 1), section(0x43, 0x1122, 21, 1),
                                     section(0x42, 0x1123, 22, 1), section(0x42, 0x3322, 23, 1),
                                     section(0x42, 0x1122, 24, 2), section(0x40, 0x3344, 25, 3)};

const MatchCase kMatchCases[] = {
    {"no mask", {0xaa, 0xbb}, {}, {}, {0, 1, 2, 3, 4, 5}},
    {"table id", {0x42}, {0xff}, {}, {0, 2, 3, 4}},
    {"table id, one bit free", {0x42}, {0xfe}, {}, {0, 1, 2, 3, 4}},
    {"extension", {0, 0x11, 0x22}, {0, 0xff, 0xff}, {}, {0, 1, 4}},
    {"version", {0, 0, 0, 2 << 1}, {0, 0, 0, 0x3e}, {}, {4}},
    {"not this version", {0, 0, 0, 1 << 1}, {0, 0, 0, 0x3e}, {0, 0, 0, 0x3e}, {4, 5}},
    {"not this table", {0x42}, {0xff}, {0xff}, {1, 5}},
    {"either byte differs", {0, 0x11, 0x22}, {0, 0xff, 0xff}, {0, 0xff, 0xff}, {2, 3, 5}},
    {"one equal, one not", {0, 0x11, 0x22}, {0, 0xff, 0xff}, {0, 0, 0xff}, {2}},
    {"equal and not within a byte", {0, 0, 0x22}, {0, 0, 0xff}, {0, 0, 0x0f}, {2}},
    {"mode without mask", {0x42}, {}, {0xff}, {0, 1, 2, 3, 4, 5}},
};

dmx_filter filter_of(const MatchCase& each) {
  dmx_filter filter{};
  std::copy(each.filter.begin(), each.filter.end(), filter.filter);
  std::copy(each.mask.begin(), each.mask.end(), filter.mask);
  std::copy(each.mode.begin(), each.mode.end(), filter.mode);
  return filter;
}

TEST_F(SectionTest, FilterPassesOtherSectionsThanItsBytesSay) {
  for (const MatchCase& each : kMatchCases) {
    TestNode node("qel_demux0");
    ASSERT_EQ(node.section(kSectionPid, DMX_IMMEDIATE_START, filter_of(each)), 0);
    feed(mux.sections(kSectionPid, kMatched));
    Sizes expected;
    for (const int index : each.passing) expected.push_back(20 + index);
    EXPECT_EQ(node.drain(), expected) << each.name;
  }
}

TEST_F(SectionTest, LastFilterByteMissesSectionByteSeventeen) {
  Bytes yes = section(0x42, 1, 30), no = section(0x42, 1, 31);
  yes[17] = 0x77;
  no[17] = 0x76;
  dmx_filter filter{};
  filter.filter[15] = 0x77;
  filter.mask[15] = 0xff;
  TestNode node("qel_demux0");
  node.section(kSectionPid, DMX_IMMEDIATE_START, filter);
  feed(mux.sections(kSectionPid, {yes, no}));
  EXPECT_EQ(node.drain(), Sizes{30});
}

TEST_F(SectionTest, SectionsOfAnySizeAndPackingComeOutWhole) {
  // From every size in steps, so that headers and ends fall on every place in
  // a packet, its last byte included.
  for (std::size_t first = 3; first < 400; first += 7) {
    std::vector<Bytes> sent;
    for (std::size_t i = 0; i < 12; ++i) {
      sent.push_back(short_section(0x50, first + i * i));
      sent.push_back(section(0x42, 1, 180 + i));
    }
    TestNode node("qel_demux0");
    node.buffer(65536);
    node.section(kSectionPid);
    feed(mux.sections(kSectionPid, sent));
    for (const Bytes& each : sent) ASSERT_EQ(node.read(), each) << "from size " << first;
    EXPECT_TRUE(node.drain().empty());
  }
}

TEST_F(SectionTest, LongestSectionPassesAndALongerOneTakesWhatFollowsWithIt) {
  TestNode node("qel_demux0");
  node.buffer(65536);
  node.section(kSectionPid);
  feed(mux.sections(kSectionPid, {short_section(0x50, 4096), short_section(0x50, 20)}));
  // The 21 bytes have no pointer_field of their own.
  feed(mux.sections(kSectionPid, {short_section(0x50, 4097) + short_section(0x50, 21)}));
  feed(mux.sections(kSectionPid, {short_section(0x50, 30)}));
  EXPECT_EQ(node.drain(), (Sizes{4096, 20, 30}));
  EXPECT_EQ(pid_counters(kSectionPid).section_errors, 1U);
}

TEST_F(SectionTest, ShortReadLosesTheRestOrRunsIntoTheNextSection) {
  TestNode node("qel_demux0");
  node.section(kSectionPid);
  feed(mux.sections(kSectionPid, {section(0x42, 1, 20), section(0x42, 2, 30)}));
  EXPECT_EQ(node.read(0).size(), 0U);
  EXPECT_EQ(node.read(2).size(), 2U);
  EXPECT_EQ(node.read(1).size(), 1U);
  EXPECT_EQ(node.drain(), (Sizes{17, 30}));
}

struct DamageCase {
  const char* name;
  std::function<void(std::vector<Bytes>&)> damage;  // of the packets of a section of 500
  Sizes expected;                                   // and then one of 40
};

const DamageCase kDamageCases[] = {
    {"none", [](auto&) {}, {500, 40}},
    {"middle lost", [](auto& p) { p.erase(p.begin() + 1); }, {40}},
    {"start lost", [](auto& p) { p.erase(p.begin()); }, {40}},
    {"first repeated", [](auto& p) { p.insert(p.begin(), p[0]); }, {500, 40}},
    {"middle repeated", [](auto& p) { p.insert(p.begin() + 1, p[1]); }, {500, 40}},
    {"middle three times", [](auto& p) { p.insert(p.begin() + 1, 2, p[1]); }, {40}},
    {"transport error", [](auto& p) { p[1][1] |= 0x80; }, {40}},
    {"scrambled", [](auto& p) { p[1][3] |= 0xc0; }, {40}},
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
    TestNode node("qel_demux0");
    node.section(kSectionPid);
    std::vector<Bytes> packets = packets_of(mux.sections(kSectionPid, {section(0x42, 1, 500)}));
    ASSERT_EQ(packets.size(), 3U);
    each.damage(packets);
    for (const Bytes& packet : packets) feed(packet);
    feed(mux.sections(kSectionPid, {section(0x42, 1, 40)}));
    EXPECT_EQ(node.drain(), each.expected) << each.name;
  }
}

TEST_F(SectionTest, AdaptationOnlyPacketBreaksASection) {
  TestNode node("qel_demux0");
  node.section(kSectionPid);
  std::vector<Bytes> packets = packets_of(mux.sections(kSectionPid, {section(0x42, 1, 300)}));
  feed(packets[0]);
  Bytes between = mux.packet(kSectionPid, {});
  between[3] = static_cast<std::uint8_t>((between[3] & 0xf0) | (packets[0][3] & 0x0f));
  feed(between);
  feed(packets[1]);
  EXPECT_EQ(node.drain(), Sizes{300});
  EXPECT_EQ(input_counters().discontinuities, 0U);
}

TEST_F(SectionTest, AnnouncedDiscontinuityIsCountedAsAnError) {
  TestNode node("qel_demux0");
  node.section(kSectionPid);
  feed(mux.sections(kSectionPid, {section(0x42, 1, 20)}));
  mux.skip(kSectionPid, 5);
  stream::Header header;
  header.unit_start = header.discontinuity = true;
  feed(mux.packet(kSectionPid, Bytes{0} + section(0x42, 1, 30), header));
  mux.skip(kSectionPid, 5);
  feed(mux.sections(kSectionPid, {section(0x42, 1, 40)}));
  EXPECT_EQ(node.drain(), (Sizes{20, 30, 40}));
  EXPECT_EQ(input_counters().discontinuities, 1U);
  EXPECT_EQ(pid_counters(kSectionPid).discontinuities, 1U);
}

TEST_F(SectionTest, SectionThatEndsBeforeThePointersTargetIsLost) {
  TestNode node("qel_demux0");
  node.section(kSectionPid);
  const Bytes whole = section(0x42, 3, 183 + 40);
  const Bytes head(whole.begin(), whole.begin() + 183), tail(whole.begin() + 183, whole.end());
  stream::Header start;
  start.unit_start = true;
  feed(mux.packet(kSectionPid, Bytes{0} + head, start));
  feed(mux.packet(kSectionPid,
                  Bytes{50} + tail + Bytes(10, 0xff) + section(0x42, 4, 40) + Bytes(93, 0xff),
                  start));
  EXPECT_EQ(node.drain(), (Sizes{223, 40}));
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

TEST_F(SectionTest, SecondFilterOnAPidDisturbsTheFirst) {
  TestNode first("qel_demux0");
  first.section(kSectionPid);
  std::vector<Bytes> packets = packets_of(mux.sections(kSectionPid, {section(0x42, 1, 500)}));
  feed(packets[0]);
  {
    TestNode second("qel_demux0");
    second.section(kSectionPid);
    feed(packets[1]);
    feed(packets[2]);
    feed(mux.sections(kSectionPid, {section(0x42, 1, 40)}));
    // It was not there when the first section began.
    EXPECT_EQ(second.drain(), Sizes{40});
  }
  feed(mux.sections(kSectionPid, {section(0x42, 1, 41)}));
  EXPECT_EQ(first.drain(), (Sizes{500, 40, 41}));
}

TEST_F(SectionTest, InputsMixTheirSectionsInProgress) {
  TestNode node("qel_demux0");
  node.section(kSectionPid);
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

TEST_F(SectionTest, OneShotFilterGivesASecondSection) {
  TestNode node("qel_demux0");
  node.section(kSectionPid, DMX_IMMEDIATE_START | DMX_ONESHOT);
  for (int round = 0; round < 2; ++round) {
    feed(mux.sections(kSectionPid,
                      {section(0x42, 1, 20), section(0x42, 2, 21), section(0x42, 3, 22)}));
    EXPECT_EQ(node.drain(), Sizes{20});
    EXPECT_FALSE(node.readable());
    EXPECT_EQ(node.buffer(4096), -EBUSY);
    EXPECT_EQ(node.control(KWRX_DMX_START), 0);
  }
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

TEST_F(SectionTest, TimeoutIsNotToldOrToldTwice) {
  TestNode node("qel_demux0");
  node.section(kSectionPid, DMX_IMMEDIATE_START, {}, 20);
  ASSERT_TRUE(node.readable(10000));
  EXPECT_EQ(node.drain(), Sizes{-ETIMEDOUT});
  EXPECT_FALSE(node.readable());
  feed(mux.sections(kSectionPid, {section(0x42, 1, 20)}));
  EXPECT_TRUE(node.drain().empty());
  EXPECT_EQ(node.control(KWRX_DMX_START), 0);
  ASSERT_TRUE(node.readable(10000));
  EXPECT_EQ(node.drain(), Sizes{-ETIMEDOUT});
}

TEST_F(SectionTest, SectionInTimeLeavesTheTimeoutArmed) {
  TestNode early("qel_demux0"), late("qel_demux0");
  early.section(kSectionPid, DMX_IMMEDIATE_START, {}, 500);
  feed(mux.sections(kSectionPid, {section(0x42, 1, 20)}));
  late.section(kSectionPid + 1, DMX_IMMEDIATE_START, {}, 600);
  ASSERT_TRUE(late.readable(10000));  // the earlier limit is over as well
  EXPECT_EQ(early.drain(), Sizes{20});
  EXPECT_FALSE(early.readable());
}

TEST_F(SectionTest, BlockingReadMissesTheTimeout) {
  TestNode node("qel_demux0", O_RDWR);
  node.section(kSectionPid, DMX_IMMEDIATE_START, {}, 20);
  EXPECT_TRUE(node.read().empty());
  EXPECT_EQ(node.last, ETIMEDOUT);
}

}  // namespace
