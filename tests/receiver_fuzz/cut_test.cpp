// SPDX-License-Identifier: LGPL-2.1-or-later
//
// One stream goes through two demuxes in different ways; what comes out must
// not depend on the way.
#include <gtest/gtest.h>
#include <qel/receiver.h>

#include <atomic>
#include <sstream>
#include <thread>

#include "tests/receiver_fuzz/random_stream.h"
#include "tests/support/test_node.h"

namespace {

using fuzz::Bytes;
using fuzz::Random;
using stream::operator+=;
using vantrel::test::TestNode;

constexpr std::size_t kAmple = std::size_t{8} << 20;
// For several PES packets, which a lost unit start makes one.
constexpr std::size_t kTight = std::size_t{32} << 10;
constexpr fuzz::Damage kDamage = {
    .flipped_bit = 20, .lost = 40, .repeated = 40, .transport_error = 60, .scrambled = 60};

/// How many filters want a PID's packets.
enum class Takers { kOne, kMany };

/// A demux with a filter of each kind, and what each has given.
class Filters {
 public:
  /// The same filters for the same seed.
  Filters(unsigned demux, dmx_input input, unsigned seed, std::size_t buffer_size)
      : demux_(demux),
        input_(input),
        takers_(seed % 2 == 0 ? Takers::kOne : Takers::kMany),
        buffer_size_(buffer_size),
        random_(seed) {
    qel_receiver_set_pacing(demux, 0);
    vantrel::test::flush(demux, input);
    const std::string number = std::to_string(demux);
    add("qel_dvr" + number);
    add(demux == 0 ? "vdec0" : "vdec1");
    EXPECT_EQ(add("qel_temi" + number).control(KWRX_DMX_START), 0);
    add_section_filters();
    add_pes_filters();
    outputs.resize(nodes.size());
    qel_receiver_reset_counters(demux);
  }

  std::vector<TestNode> nodes;
  std::vector<std::vector<Bytes>> outputs;  // by node, read by read

  void feed(const Bytes& bytes) const {
    ASSERT_EQ(qel_receiver_feed(demux_, input_, bytes.data(), bytes.size()), 0);
  }
  void drain() {
    for (std::size_t i = 0; i < nodes.size(); ++i) drain(i);
  }
  void drain(std::size_t index) {
    TestNode& node = nodes[index];
    for (Bytes bytes = node.read(); !bytes.empty(); bytes = node.read())
      outputs[index].push_back(std::move(bytes));
    EXPECT_TRUE(node.last == EAGAIN || node.last == 0) << "node " << index << ": " << node.last;
  }
  /// What the receiver has counted, but for what tells the demuxes apart.
  [[nodiscard]] std::string counters() const {
    std::ostringstream text;
    qel_input_counters in{};
    qel_receiver_get_input_counters(demux_, input_, &in);
    text << in.packets << ' ' << in.transport_errors << ' ' << in.scrambled << ' '
         << in.discontinuities << ' ' << in.repeated;
    for (unsigned pid = 0; pid <= stream::kNullPid; ++pid) {
      qel_pid_counters of{};
      qel_receiver_get_pid_counters(demux_, input_, pid, &of);
      if (of.packets > 0)
        text << "\n"
             << pid << ": " << of.packets << ' ' << of.discontinuities << ' ' << of.sections;
    }
    const auto add_node = [](const qel_node_counters* of, void* to) {
      *static_cast<std::ostringstream*>(to) << "\n"
                                            << of->kind << ' ' << of->pid << ": " << of->records
                                            << ' ' << of->bytes << ' ' << of->dropped;
    };
    qel_receiver_foreach_node(demux_, add_node, &text);
    return text.str();
  }

 private:
  TestNode& add(const std::string& name) {
    nodes.emplace_back(name, O_RDONLY | O_NONBLOCK);
    EXPECT_TRUE(nodes.back()) << name;
    nodes.back().buffer(buffer_size_);
    return nodes.back();
  }
  TestNode& add_filter() { return add("qel_demux" + std::to_string(demux_)); }

  void add_section_filters() {
    for (unsigned i = 0; i < 12; ++i) {
      dmx_filter filter{};
      filter.filter[0] = static_cast<std::uint8_t>(random_.from_to(0x40, 0x47));
      filter.mask[0] = random_.one_in(2) ? 0xff : 0;
      filter.filter[2] = static_cast<std::uint8_t>(random_.below(4));
      filter.mask[2] = random_.one_in(3) ? 0xff : 0;
      filter.mode[2] = random_.one_in(2) ? 0xff : 0;
      const unsigned check = random_.one_in(2) ? DMX_CHECK_CRC : 0;
      const unsigned pid = fuzz::kFirstSectionPid + i % fuzz::kSectionPids;
      EXPECT_EQ(add_filter().section(pid, DMX_IMMEDIATE_START | check, filter), 0);
    }
  }
  void add_pes_filter(unsigned pid, dmx_output output, dmx_ts_pes type = DMX_PES_OTHER) {
    EXPECT_EQ(add_filter().pes(pid, output, type, input_), 0);
  }
  void add_pes_filters() {
    const dmx_ts_pes type = demux_ == 0 ? DMX_PES_VIDEO0 : DMX_PES_VIDEO1;
    constexpr unsigned kPid = fuzz::kFirstPesPid;
    add_pes_filter(kPid, DMX_OUT_DECODER, type);
    add_pes_filter(kPid + 1, DMX_OUT_TAP);
    add_pes_filter(kPid + 2, DMX_OUT_TS_TAP);
    if (takers_ == Takers::kOne) return;
    add_pes_filter(kPid, DMX_OUT_TAP);
    add_pes_filter(kPid + 1, DMX_OUT_TAP);
    add_pes_filter(fuzz::kFirstSectionPid, DMX_OUT_TS_TAP);
    add_pes_filter(kPid + 2, DMX_OUT_TSDEMUX_TAP);
    add_pes_filter(0x2000, DMX_OUT_TAP);
  }

  const unsigned demux_;
  const dmx_input input_;
  const Takers takers_;
  const std::size_t buffer_size_;
  Random random_;
};

Bytes joined(const std::vector<Bytes>& pieces) {
  Bytes all;
  for (const Bytes& piece : pieces) all += piece;
  return all;
}

/// Nodes whose reads are records are compared read by read.
void expect_same(const Filters& left, const Filters& right, unsigned seed) {
  std::size_t bytes = 0;
  for (std::size_t i = 0; i < left.nodes.size(); ++i) {
    const Bytes all = joined(left.outputs[i]);
    bytes += all.size();
    EXPECT_EQ(all == joined(right.outputs[i]), true)
        << "seed " << seed << ", node " << i << ": " << all.size() << " and "
        << joined(right.outputs[i]).size() << " bytes";
  }
  EXPECT_GT(bytes, 0U);
}

TEST(ReceiverFuzz, OutputDependsOnWhereTheStreamIsCut) {
  for (unsigned seed = 1; seed <= 12; ++seed) {
    fuzz::RandomStream source(seed, kDamage);
    Random random(seed + 1000);
    Filters whole(0, DMX_IN_FRONTEND, seed, kAmple), cut(1, DMX_IN_FRONTEND, seed, kAmple);
    Bytes stream = source.packets(8000);
    if (seed % 3 == 0) stream = stream::with_parity(stream);
    whole.feed(stream);
    whole.drain();
    for (std::size_t at = 0; at < stream.size();) {
      const std::size_t most = random.one_in(3) ? 200000 : random.one_in(2) ? 1000 : 5;
      const std::size_t count = std::min(stream.size() - at, random.below(most));
      cut.feed(stream::slice(stream, at, count));
      at += count;
    }
    cut.drain();
    expect_same(whole, cut, seed);
    EXPECT_EQ(whole.counters(), cut.counters()) << "seed " << seed;
    for (std::size_t i = 3; i < whole.nodes.size(); ++i) {
      EXPECT_EQ(whole.outputs[i].size(), cut.outputs[i].size())
          << "seed " << seed << ", node " << i;
    }
  }
}

TEST(ReceiverFuzz, DataIsLostOnAnInputThatWaits) {
  for (unsigned seed = 1; seed <= 6; ++seed) {
    fuzz::Damage damage = kDamage;
    damage.flipped_bit = 0;  // a PES packet may say that it is longer than the buffer
    fuzz::RandomStream source(seed, damage);
    const Bytes stream = source.packets(4000);
    Filters ample(0, DMX_IN_DVR, seed, kAmple), tight(1, DMX_IN_DVR, seed, kTight);
    ample.feed(stream);
    ample.drain();

    std::atomic<bool> fed{false};
    std::vector<std::thread> readers;
    for (std::size_t i = 0; i < tight.nodes.size(); ++i) {
      readers.emplace_back([&tight, &fed, i] {
        while (!fed) {
          tight.nodes[i].readable(20);
          tight.drain(i);
        }
        tight.drain(i);
      });
    }
    tight.feed(stream);
    fed = true;
    for (std::thread& reader : readers) reader.join();
    expect_same(ample, tight, seed);
    EXPECT_EQ(ample.counters(), tight.counters()) << "seed " << seed;
  }
}

}  // namespace
