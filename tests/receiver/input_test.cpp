// SPDX-License-Identifier: LGPL-2.1-or-later
#include <random>

#include "tests/receiver/fixture.h"

namespace {

using stream::Bytes;
using stream::section;
using Sizes = std::vector<int>;

constexpr unsigned kInputPid = 0x100;

class InputTest : public ReceiverTest {
 protected:
  /// Packets of sections of 150 + i bytes, each packet `stride` after the last.
  Bytes spaced(std::size_t count, std::size_t stride) {
    Bytes out;
    for (std::size_t i = 0; i < count; ++i) {
      Bytes gap(stride - 188, 0);
      // A time stamp stands before its packet, parity behind it.
      if (stride == 192) out += gap;
      out += mux.sections(kInputPid, {section(0x42, 0, 150 + i % 30)});
      if (stride == 204) out += gap;
    }
    return out;
  }
  static Sizes expected(std::size_t count) {
    Sizes sizes;
    for (std::size_t i = 0; i < count; ++i) sizes.push_back(static_cast<int>(150 + i % 30));
    return sizes;
  }
  static void feed_in_pieces(const Bytes& bytes, std::size_t piece) {
    for (std::size_t at = 0; at < bytes.size(); at += piece) {
      feed(stream::slice(bytes, at, std::min(piece, bytes.size() - at)));
    }
  }
  void start_anew() {
    SetUp();
    mux = {};
  }
};

TEST_F(InputTest, PacketsAreLostForHowTheyAreCutOrSpaced) {
  constexpr std::size_t kCount = 40;
  for (const std::size_t stride : {188, 192, 204}) {
    for (const std::size_t piece : {1, 3, 47, 187, 188, 189, 192, 204, 1000, 100000}) {
      start_anew();
      TestNode node = section_node(kInputPid);
      feed_in_pieces(spaced(kCount, stride), piece);
      EXPECT_EQ(node.drain(), expected(kCount)) << "stride " << stride << ", by " << piece;
      EXPECT_EQ(input_counters().packets, kCount) << "stride " << stride << ", by " << piece;
      EXPECT_LE(input_counters().sync_losses, 1U) << "stride " << stride << ", by " << piece;
    }
  }
}

TEST_F(InputTest, JunkTakesPacketsWithIt) {
  std::mt19937 random(1);
  for (int round = 0; round < 200; ++round) {
    start_anew();
    TestNode node = section_node(kInputPid);
    Bytes junk(random() % 700);
    for (auto& byte : junk) byte = static_cast<std::uint8_t>(random());
    // A sync byte where one is expected cannot be told from a packet.
    if (!junk.empty()) junk[0] = 0;
    const Bytes before = spaced(8, 188);
    const Bytes behind = spaced(8, 188);
    feed_in_pieces(before + junk + behind, 1 + random() % 2000);
    Sizes sizes = expected(8);
    for (const int size : expected(8)) sizes.push_back(size);
    EXPECT_EQ(node.drain(), sizes) << "round " << round << ", junk of " << junk.size();
    // A piece that ends just so can make junk pass for a packet.
    EXPECT_EQ((junk.size() - input_counters().skipped_bytes) % 188, 0U) << "round " << round;
    EXPECT_EQ(input_counters().packets, 16 + (junk.size() - input_counters().skipped_bytes) / 188);
  }
}

TEST_F(InputTest, FlushLeavesTheInputOutOfStepOrHalfASection) {
  TestNode node = section_node(kInputPid);
  const Bytes half = mux.sections(kInputPid, {section(0x42, 1, 300)});
  feed(stream::slice(half, 0, 250));
  qel_receiver_set_flushing(0, DMX_IN_DVR, 1);
  EXPECT_EQ(feed(Bytes(188, 0x47)), ECANCELED);
  EXPECT_EQ(qel_receiver_end(0, DMX_IN_DVR), -1);
  qel_receiver_set_flushing(0, DMX_IN_DVR, 0);
  EXPECT_EQ(input_counters().flushed, 188U);
  feed(stream::slice(half, 188, 188));
  feed(spaced(2, 188));
  EXPECT_EQ(node.drain(), expected(2));
  EXPECT_EQ(input_counters().discontinuities, 0U);
}

TEST_F(InputTest, CountersMissOrDoubleWhatTheyCount) {
  const stream::Header error{.transport_error = true}, scrambled{.scrambling = stream::kScrambled};
  feed(mux.packet(kInputPid, stream::counting(184)));
  feed(mux.packet(kInputPid, stream::counting(184), scrambled));
  feed(mux.packet(kInputPid, stream::counting(184), error));
  const Bytes last = mux.packet(kInputPid, stream::counting(184));  // a jump
  feed(last);
  feed(last);
  for (int i = 0; i < 5; ++i) feed(mux.packet(0x1fff, stream::counting(184)));
  feed(mux.packet(0x1fff, stream::counting(184)));
  mux.skip(0x1fff, 3);
  feed(mux.packet(0x1fff, stream::counting(184)));

  const qel_input_counters counters = input_counters();
  EXPECT_EQ(counters.bytes, 12U * 188);
  EXPECT_EQ(counters.packets, 12U);
  EXPECT_EQ(counters.null_packets, 7U);
  EXPECT_EQ(counters.scrambled, 1U);
  EXPECT_EQ(counters.transport_errors, 1U);
  EXPECT_EQ(counters.discontinuities, 1U);
  EXPECT_EQ(counters.repeated, 1U);
  EXPECT_EQ(counters.skipped_bytes, 0U);
  EXPECT_EQ(pid_counters(kInputPid).packets, 4U);
  EXPECT_EQ(pid_counters(kInputPid, DMX_IN_FRONTEND).packets, 0U);

  TestNode node("qel_demux0");
  char* text = qel_receiver_describe(0);
  ASSERT_NE(text, nullptr);
  EXPECT_NE(std::string(text).find("pid 0x0100: 4 packets, 1 discontinuities"), std::string::npos)
      << text;
  EXPECT_NE(std::string(text).find("qel_demux0 fd"), std::string::npos) << text;
  free(text);

  qel_receiver_reset_counters(0);
  EXPECT_EQ(input_counters().packets, 0U);
  EXPECT_EQ(pid_counters(kInputPid).packets, 0U);
  feed(last);  // still known as the last packet
  EXPECT_EQ(input_counters().discontinuities + input_counters().repeated, 1U);
}

TEST_F(InputTest, NumbersOutOfRangeAreUsed) {
  const auto front_end = DMX_IN_FRONTEND;
  const auto neither = static_cast<dmx_input>(2);
  qel_input_counters input;
  qel_pid_counters pid;
  const auto nothing = [](const qel_node_counters*, void*) {};
  const std::vector<std::function<int()>> calls = {
      [&] { return qel_receiver_feed(6, front_end, "", 0); },
      [&] { return qel_receiver_feed(0, neither, "", 0); },
      [&] { return qel_receiver_feed(0, front_end, nullptr, 1); },
      [&] { return qel_receiver_end(6, front_end); },
      [&] { return qel_receiver_set_flushing(0, neither, 1); },
      [&] { return qel_receiver_set_pacing(6, 1); },
      [&] { return qel_receiver_has_stream_nodes(6); },
      [&] { return qel_receiver_get_input_counters(0, neither, &input); },
      [&] { return qel_receiver_get_pid_counters(0, front_end, 0x2000, &pid); },
      [&] { return qel_receiver_foreach_node(6, nothing, nullptr); },
      [&] { return qel_receiver_reset_counters(6); },
      [&] { return qel_receiver_describe(6) ? 0 : -1; },
  };
  for (std::size_t i = 0; i < calls.size(); ++i) {
    errno = 0;
    EXPECT_EQ(calls[i](), -1) << i;
    EXPECT_EQ(errno, EINVAL) << i;
  }
}

}  // namespace
