// SPDX-License-Identifier: LGPL-2.1-or-later
#include <sys/ioctl.h>

#include "tests/receiver/fixture.h"

namespace {

using stream::Bytes;
using stream::pes;
using Sizes = std::vector<int>;
using namespace std::chrono_literals;

constexpr unsigned kPesPid = 0x200;
constexpr std::uint8_t kVideo = 0xe0;
constexpr std::uint8_t kAudio = 0xc0;

class PesTest : public ReceiverTest {};

TEST_F(PesTest, TapJoinsOrSplitsPesPackets) {
  for (std::size_t size = 1; size < 800; size += 13) {
    TestNode tap = tap_node(kPesPid, 65536);
    const std::vector<Bytes> sent = {pes(kAudio, size), pes(kVideo, size, false),
                                     pes(kAudio, size + 1), pes(kVideo, size + 2, false)};
    for (const Bytes& each : sent) feed(mux.unit(kPesPid, each));
    for (std::size_t i = 0; i < 3; ++i) ASSERT_EQ(tap.read(), sent[i]) << size << " " << i;
    // Without a length only the end tells that it is whole.
    EXPECT_TRUE(tap.drain().empty()) << size;
    Background end([] { return qel_receiver_end(0, DMX_IN_DVR); });
    ASSERT_TRUE(tap.readable(20000));
    EXPECT_EQ(tap.read(), sent[3]) << size;
    EXPECT_EQ(end.result(), 0);
  }
}

TEST_F(PesTest, EndWithoutStuffingIsNotedOnlyWithTheNextPesPacket) {
  const Bytes filled = pes(kAudio, 5 * 184 - 9);
  for (const std::size_t packets_before : {1, 2, 3, 4}) {
    TestNode tap = tap_node(kPesPid);
    const Bytes unit = mux.unit(kPesPid, filled);
    const std::size_t before = packets_before * stream::kPacketSize;
    feed(stream::slice(unit, 0, before));
    EXPECT_TRUE(tap.drain().empty());
    feed(stream::slice(unit, before, unit.size() - before));
    EXPECT_EQ(tap.read(), filled) << packets_before;
    EXPECT_EQ(node_counters(tap).records, 1U);
  }
}

TEST_F(PesTest, StartWithoutBytesEndsThePesPacket) {
  TestNode tap = tap_node(kPesPid);
  const stream::Header start{.unit_start = true};
  Bytes empty = mux.packet(kPesPid, stream::counting(1), start);
  constexpr std::size_t kFieldLength = 4;
  empty[kFieldLength] = 183;  // up to the packet's end
  const Bytes whole = pes(kAudio, 184 - 9);
  feed(empty);
  feed(mux.packet(kPesPid, whole));
  EXPECT_EQ(tap.read(), whole);
}

TEST_F(PesTest, PacketsWithoutPayloadGiveBytes) {
  TestNode tap = tap_node(stream::kNullPid);
  Bytes all = mux.unit(stream::kNullPid, pes(kVideo, 300, false));
  for (unsigned i = 0; i < 5; ++i) {
    Bytes packet = mux.packet(stream::kNullPid, stream::counting(184));
    packet[3] &= 0x0f;
    all += packet;
  }
  all += mux.unit(stream::kNullPid, pes(kVideo, 10));
  feed(all);
  EXPECT_EQ(tap.drain(), (Sizes{309, 19}));
}

TEST_F(PesTest, HeaderCutByAPacketEndHidesTheLength) {
  TestNode tap = tap_node(kPesPid);
  const Bytes whole = pes(kAudio, 100);
  const stream::Header start{.unit_start = true};
  feed(mux.packet(kPesPid, stream::slice(whole, 0, 2), start));
  feed(mux.packet(kPesPid, stream::slice(whole, 2, 3)));
  feed(mux.packet(kPesPid, stream::slice(whole, 5, 60)));
  EXPECT_TRUE(tap.drain().empty());
  feed(mux.packet(kPesPid, stream::slice(whole, 65, whole.size() - 65)));
  EXPECT_EQ(tap.read(), whole);
}

TEST_F(PesTest, TapTakesStuffingOrATailWithoutStart) {
  TestNode tap = tap_node(kPesPid);
  feed(mux.packet(kPesPid, stream::counting(184)));  // no unit has started
  feed(mux.unit(kPesPid, pes(kAudio, 50)));
  feed(mux.packet(kPesPid, stream::counting(184)));  // behind the declared length
  feed(mux.unit(kPesPid, pes(kAudio, 60)));
  EXPECT_EQ(tap.drain(), (Sizes{59, 69}));
}

TEST_F(PesTest, LengthThatWrappedAroundCutsAPictureShort) {
  Bytes picture = pes(kVideo, 70000, false);
  picture[5] = 2;
  TestNode tap = tap_node(kPesPid, 131072);
  feed(stream::join({mux.unit(kPesPid, picture), mux.unit(kPesPid, pes(kVideo, 10))}));
  EXPECT_EQ(tap.read(131072), picture);
  EXPECT_EQ(tap.drain(), Sizes{19});
}

TEST_F(PesTest, LiveOverflowLeavesHalfAPesPacket) {
  TestNode tap("qel_demux0");
  tap.buffer(2000);
  tap.pes(kPesPid, DMX_OUT_TAP, DMX_PES_OTHER, DMX_IN_FRONTEND);
  for (const std::size_t size : {1000, 1200, 300, 3000}) {
    feed(mux.unit(kPesPid, pes(kAudio, size)), DMX_IN_FRONTEND);
  }
  EXPECT_EQ(tap.drain(), (Sizes{1009, -EOVERFLOW, 309}));
  feed(mux.unit(kPesPid, pes(kAudio, 1991)), DMX_IN_FRONTEND);
  EXPECT_EQ(tap.drain(), Sizes{2000});
  EXPECT_EQ(node_counters(tap).dropped, 2U);
}

TEST_F(PesTest, LosslessTapWaitsForAPesPacketThatNeverFits) {
  TestNode tap = tap_node(kPesPid, 2000);
  for (const std::size_t size : {500, 2500, 600}) {
    EXPECT_EQ(feed(mux.unit(kPesPid, pes(kAudio, size))), 0);
  }
  EXPECT_EQ(tap.drain(), (Sizes{509, -EOVERFLOW, 609}));
}

TEST_F(PesTest, UnboundedPesPacketThatNeverFitsStopsTheFeed) {
  TestNode tap = tap_node(kPesPid, 2000);
  const Bytes data = stream::join({mux.unit(kPesPid, pes(kVideo, 500, false)),
                                   mux.unit(kPesPid, pes(kVideo, 2500, false)),
                                   mux.unit(kPesPid, pes(kVideo, 600))});
  Background feeder([&] { return feed(data); });
  Sizes sizes;
  while (sizes.size() < 3 && tap.readable(20000)) {
    for (const int size : tap.drain()) sizes.push_back(size);
  }
  EXPECT_EQ(sizes, (Sizes{509, -EOVERFLOW, 609}));
  EXPECT_EQ(feeder.result(), 0);
}

TEST_F(PesTest, ScrambledPayloadReachesATapOrMissesARecording) {
  TestNode tap("qel_demux0"), recorded("qel_demux0"), record("qel_dvr0", O_RDONLY | O_NONBLOCK);
  tap.pes(kPesPid, DMX_OUT_TAP);
  recorded.pes(kPesPid, DMX_OUT_TS_TAP);
  const stream::Header scrambled{.unit_start = true, .scrambling = stream::kScrambled};
  const Bytes packet = mux.packet(kPesPid, stream::counting(184), scrambled);
  feed(packet);
  feed(mux.unit(kPesPid, pes(kAudio, 50)));
  EXPECT_EQ(tap.drain(), Sizes{59});
  EXPECT_EQ(stream::slice(record.read_all(), 0, 188), packet);
}

TEST_F(PesTest, RunOfPacketsTakesWhatDoesNotGoOnOrIsNotShown) {
  const Bytes filled = pes(kAudio, 184 - 9), open = pes(kVideo, 184 - 9, false);
  const Bytes cut = pes(kVideo, 2 * 184 + 2 * 100 - 9, false);
  const stream::Header start{.unit_start = true}, scrambled{.scrambling = stream::kScrambled};
  const auto packets_of = [&](unsigned pid) {
    return stream::join({mux.unit(pid, filled), mux.unit(pid, open), mux.unit(pid, filled),
                         mux.packet(pid, stream::slice(cut, 0, 184), start),
                         mux.packet(pid, stream::slice(cut, 184, 100)),
                         mux.packet(pid, stream::slice(cut, 284, 100)),
                         mux.packet(pid, stream::slice(cut, 384, 184)), mux.unit(pid, filled),
                         mux.packet(pid, open, start), mux.packet(pid, open, scrambled),
                         mux.packet(pid, open, start), mux.packet(pid, open), mux.packet(pid, open),
                         mux.packet(pid, open)});
  };
  for (const std::size_t piece : {188, 100000}) {
    for (const unsigned recorded_pid : {kPesPid + 1, 0x2000U}) {
      SetUp();
      TestNode tap = tap_node(kPesPid, 65536), recorded("qel_demux0");
      TestNode record("qel_dvr0", O_RDONLY | O_NONBLOCK);
      recorded.pes(recorded_pid, DMX_OUT_TS_TAP);
      const Bytes tapped = packets_of(kPesPid), others = packets_of(kPesPid + 1);
      const Bytes all = stream::with_repeated(tapped, 6) + stream::with_repeated(others, 6);
      for (std::size_t at = 0; at < all.size(); at += piece)
        feed(stream::slice(all, at, std::min(piece, all.size() - at)));
      for (const Bytes& each : {filled, open, filled, cut, filled})
        EXPECT_EQ(tap.read(), each) << piece;
      EXPECT_TRUE(tap.drain().empty()) << piece;
      const Bytes expected = recorded_pid == kPesPid + 1 ? others : tapped + others;
      EXPECT_EQ(record.read_all(), expected) << piece;
      for (const TestNode* node : {&record, &recorded})
        EXPECT_EQ(node_counters(*node).records, expected.size() / 188) << piece;
      EXPECT_EQ(input_counters().scrambled, 2U) << piece;
    }
  }
}

TEST_F(PesTest, PacketTapMissesAnAddedPidOrKeepsARemovedOne) {
  std::uint16_t pid = kPesPid + 1;
  TestNode tap("qel_demux0"), other("qel_demux0");
  tap.pes(kPesPid, DMX_OUT_TSDEMUX_TAP);
  other.pes(kPesPid, DMX_OUT_TS_TAP);
  EXPECT_EQ(other.control(DMX_ADD_PID, &pid), -EINVAL);
  EXPECT_EQ(tap.control(DMX_ADD_PID, &pid), 0);
  EXPECT_EQ(tap.control(DMX_ADD_PID, &pid), 0);
  const auto round = [&] {
    feed(mux.packet(kPesPid, stream::counting(184)));
    feed(mux.packet(kPesPid + 1, stream::counting(184)));
    return tap.read_all().size();
  };
  EXPECT_EQ(round(), 2U * 188);
  EXPECT_EQ(tap.control(DMX_REMOVE_PID, &pid), 0);
  EXPECT_EQ(round(), 188U);
}

class PortTest : public ReceiverTest {};

TEST_F(PortTest, PortBeginsAmidAPesPacket) {
  TestNode video("qel_demux0"), port("vdec0", O_RDONLY | O_NONBLOCK);
  ASSERT_EQ(video.pes(kPesPid, DMX_OUT_DECODER, DMX_PES_VIDEO0), 0);
  const Bytes first = pes(kVideo, 500, false), second = pes(kVideo, 600, false);
  const Bytes packets = mux.unit(kPesPid, first);
  feed(stream::slice(packets, 188, packets.size() - 188));
  EXPECT_TRUE(port.read_all().empty());
  feed(mux.unit(kPesPid, second));
  EXPECT_EQ(port.read_all(), second);
  EXPECT_TRUE(video.drain().empty());

  // Another PID, amid a PES packet of it.
  const Bytes other = mux.unit(kPesPid + 1, first);
  video.pes(kPesPid + 1, DMX_OUT_DECODER, DMX_PES_VIDEO0);
  feed(stream::slice(other, 188, other.size() - 188));
  feed(mux.unit(kPesPid + 1, second));
  EXPECT_EQ(port.read_all(), second);
}

TEST_F(PortTest, PortOpenedAgainBeginsAmidAPesPacket) {
  TestNode video("qel_demux0");
  video.pes(kPesPid, DMX_OUT_DECODER, DMX_PES_VIDEO0);
  const Bytes packets = mux.unit(kPesPid, pes(kVideo, 500, false));
  for (int round = 0; round < 3; ++round) {
    TestNode port("vdec0", O_RDONLY | O_NONBLOCK);
    feed(stream::slice(packets, 0, 188));
    EXPECT_EQ(port.read_all().size(), 184U);
    port.close();
    TestNode again("vdec0", O_RDONLY | O_NONBLOCK);
    feed(mux.packet(kPesPid, stream::counting(184)));
    EXPECT_TRUE(again.read_all().empty());
    SetUp();
  }
}

TEST_F(PortTest, PesTypeReachesTheWrongPort) {
  const std::pair<const char*, dmx_ts_pes> kPorts[] = {
      {"vdec0", DMX_PES_VIDEO0}, {"vdec1", DMX_PES_VIDEO1}, {"vdec2", DMX_PES_VIDEO2},
      {"vdec3", DMX_PES_VIDEO3}, {"adec0", DMX_PES_AUDIO0}, {"adec1", DMX_PES_AUDIO1},
      {"adec2", DMX_PES_AUDIO2}, {"adec3", DMX_PES_AUDIO3}};
  std::vector<TestNode> filters, readers;
  for (unsigned i = 0; i < std::size(kPorts); ++i) {
    filters.emplace_back("qel_demux0");
    ASSERT_EQ(filters[i].pes(kPesPid + i, DMX_OUT_DECODER, kPorts[i].second), 0);
    readers.emplace_back(kPorts[i].first, O_RDONLY | O_NONBLOCK);
  }
  for (unsigned i = 0; i < std::size(kPorts); ++i)
    feed(mux.unit(kPesPid + i, pes(kVideo, 100 + i)));
  for (unsigned i = 0; i < std::size(kPorts); ++i) {
    EXPECT_EQ(readers[i].drain(), Sizes{static_cast<int>(109 + i)}) << kPorts[i].first;
  }
}

TEST_F(PortTest, DecoderTypeIsSharedOrNotGivenBack) {
  TestNode first("qel_demux0"), second("qel_demux0"), tap("qel_demux0"), elsewhere("qel_demux1");
  const auto video = [](TestNode& node) {
    return node.pes(kPesPid, DMX_OUT_DECODER, DMX_PES_VIDEO0);
  };
  EXPECT_EQ(video(first), 0);
  EXPECT_EQ(video(second), -EINVAL);
  EXPECT_EQ(video(elsewhere), -EBUSY);
  EXPECT_EQ(tap.pes(kPesPid, DMX_OUT_TAP, DMX_PES_VIDEO0), 0);
  EXPECT_EQ(first.control(KWRX_DMX_STOP), 0);
  EXPECT_EQ(second.control(KWRX_DMX_START), 0);
  EXPECT_EQ(first.control(KWRX_DMX_START), -EINVAL);
  second.close();
  EXPECT_EQ(elsewhere.control(KWRX_DMX_START), 0);
  EXPECT_EQ(first.control(KWRX_DMX_START), -EBUSY);
  elsewhere.section(0x10);
  EXPECT_EQ(first.control(KWRX_DMX_START), 0);
}

TEST_F(PortTest, LosslessFeedWaitsForAPortNobodyReadsOrNotForOneThatIsRead) {
  TestNode audio("qel_demux0");
  audio.pes(kPesPid, DMX_OUT_DECODER, DMX_PES_AUDIO0);
  Bytes data;
  for (int i = 0; i < 20; ++i) data += mux.unit(kPesPid, pes(kAudio, 1000));
  EXPECT_EQ(feed(data), 0);
  TestNode port("adec0", O_RDONLY | O_NONBLOCK);
  port.buffer(4096);
  Background feeder([&] { return feed(data); });
  std::size_t got = 0;
  while (got < 20 * 1009U && port.readable(20000)) got += port.read_all().size();
  EXPECT_EQ(got, 20 * 1009U);
  EXPECT_EQ(feeder.result(), 0);
  Background again([&] { return feed(data); });
  ASSERT_TRUE(port.readable(20000));
  EXPECT_FALSE(again.done_within(50ms));
  port.close();
  EXPECT_EQ(again.result(), 0);
}

TEST_F(PortTest, LiveOverflowLeavesHalfAPicture) {
  TestNode video("qel_demux0"), port("vdec0", O_RDONLY | O_NONBLOCK);
  port.buffer(2000);
  video.pes(kPesPid, DMX_OUT_DECODER, DMX_PES_VIDEO0, DMX_IN_FRONTEND);
  const Bytes first = pes(kVideo, 1000, false), third = pes(kVideo, 700, false);
  for (const Bytes& each : {first, pes(kVideo, 1200, false), third, pes(kVideo, 10)}) {
    feed(mux.unit(kPesPid, each), DMX_IN_FRONTEND);
  }
  EXPECT_EQ(port.read(), first);
  port.read();
  EXPECT_EQ(port.last, EOVERFLOW);
  EXPECT_EQ(port.read(third.size()), third);
}

TEST_F(PortTest, BytesBehindTheDeclaredEndAreLostOrCountedAsOnePiece) {
  TestNode video("qel_demux0"), port("vdec0", O_RDONLY | O_NONBLOCK);
  video.pes(kPesPid, DMX_OUT_DECODER, DMX_PES_VIDEO0, DMX_IN_FRONTEND);
  const Bytes picture = pes(kVideo, 3 * 184 - 9), more = stream::counting(184);
  Bytes all = mux.unit(kPesPid, picture);
  for (unsigned i = 0; i < 4; ++i) all += mux.packet(kPesPid, more);
  feed(all, DMX_IN_FRONTEND);
  EXPECT_EQ(port.read_all(), stream::join({picture, more, more, more, more}));
  EXPECT_EQ(node_counters(port).records, 5U);
}

TEST_F(PortTest, EndIsNotSeenOrOutlastsNewData) {
  TestNode video("qel_demux0"), recorded("qel_demux0");
  TestNode port("vdec0", O_RDONLY), record("qel_dvr0", O_RDONLY);  // both block
  video.pes(kPesPid, DMX_OUT_DECODER, DMX_PES_VIDEO0);
  recorded.pes(kPesPid, DMX_OUT_TS_TAP);
  for (int round = 0; round < 3; ++round) {
    feed(mux.unit(kPesPid, pes(kVideo, 100, false)));
    Background end([] { return qel_receiver_end(0, DMX_IN_DVR); });
    EXPECT_EQ(port.read().size(), 109U);
    EXPECT_EQ(record.read().size(), 188U);
    EXPECT_EQ(end.result(), 0);
    EXPECT_TRUE(port.readable());
    EXPECT_EQ(port.read().size(), 0U);
    EXPECT_EQ(port.last, 0);
    EXPECT_EQ(record.read().size(), 0U);
    EXPECT_EQ(record.last, 0);
  }
}

TEST_F(PortTest, SecondReaderGetsIn) {
  for (const char* name : {"vdec0", "qel_dvr0"}) {
    TestNode first(name, O_RDONLY);
    EXPECT_EQ(TestNode(name, O_RDONLY).error, EBUSY) << name;
    first.close();
    EXPECT_TRUE(TestNode(name, O_RDONLY)) << name;
  }
}

}  // namespace
