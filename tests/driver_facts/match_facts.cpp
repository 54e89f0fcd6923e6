// SPDX-License-Identifier: LGPL-2.1-or-later
#include <chrono>

#include "tests/driver_facts/facts.h"

namespace facts {
namespace {

struct Match {
  const char* name;
  std::initializer_list<MatchByte> rows;
};

// On sections that differ in table id, table id extension and version.
const Match kMatches[] = {
    {"match.mask 0", {}},
    {"match.byte 0 = 42/ff", {{0, 0x42, 0xff, 0}}},
    {"match.byte 0 = 42/fe", {{0, 0x42, 0xfe, 0}}},
    {"match.byte 0 = bits outside the mask do not count 5f/f0", {{0, 0x5f, 0xf0, 0}}},
    {"match.bytes 1 2 = 11 22", {{1, 0x11, 0xff, 0}, {2, 0x22, 0xff, 0}}},
    {"match.byte 3 = version 2", {{0, 0x42, 0xff, 0}, {3, 2 << 1, 0x3e, 0}}},
    {"match.byte 3 = not version 1", {{0, 0x42, 0xff, 0}, {3, 1 << 1, 0x3e, 0x3e}}},
    {"match.byte 0 = not 42", {{0, 0x42, 0xff, 0xff}}},
    {"match.bytes 1 2 = not 11 not 22 (either differs)",
     {{1, 0x11, 0xff, 0xff}, {2, 0x22, 0xff, 0xff}}},
    {"match.bytes 1 2 = 11 not 22", {{1, 0x11, 0xff, 0}, {2, 0x22, 0xff, 0xff}}},
    {"match.byte 2 = high half 2 and low half not 2", {{2, 0x22, 0xff, 0x0f}}},
    {"match.mode without mask", {{0, 0x42, 0, 0xff}}},
};

void try_match(Node& node, const Match& row, const Bytes& sections) {
  node.section(kSectionPid, match(row.rows));
  feed(packed(kSectionPid, sections));
  fact(row.name, node.passed());
}

std::string bad_section_on_two(unsigned first_flags, unsigned second_flags) {
  Node first, second;
  first.section(kSectionPid, table_42(), kNow | first_flags);
  second.section(kSectionPid, table_42(), kNow | second_flags);
  feed(packed(kSectionPid, stream::with_bad_crc(section(0x42, 2, 20))));
  return join_results({first.read(), second.read()});
}

void crc(Node& node) {
  const Bytes sections = join({stream::with_bad_crc(section(0x42, 2, 20)), section(0x42, 1, 20),
                               stream::short_section(0x42, 12)});
  node.section(kSectionPid);
  feed(packed(kSectionPid, sections));
  fact("crc.unchecked: bad(20) good(20) without-crc(12)", node.drain());
  node.section(kSectionPid, table_42(), kNow | DMX_CHECK_CRC);
  feed(packed(kSectionPid, sections));
  fact("crc.checked", node.drain());
  node.stop();
  fact("crc.two nodes of one pid, bad section: first-unchecked second-checked",
       bad_section_on_two(0, DMX_CHECK_CRC));
  fact("crc.two nodes of one pid, bad section: first-checked second-unchecked",
       bad_section_on_two(DMX_CHECK_CRC, 0));
}

void oneshot(Node& node) {
  const Bytes one = section(0x42, 1, 20);
  node.section(kSectionPid, table_42(), kNow | DMX_ONESHOT);
  feed(packed(kSectionPid, join({one, one, one})));
  fact("oneshot.three fed: poll reads poll", {node.poll(), node.drain(), node.poll()});
  feed(packed(kSectionPid, one));
  fact("oneshot.afterwards: read size(4096) start", {node.read(), node.size(4096), node.start()});
  feed(packed(kSectionPid, one + one));
  fact("oneshot.started again, two fed", node.drain());
}

/// Calls what starts a time limit and is to be over well within it; again, if the
/// machine was too busy for that.
template <typename Act>
void in_time(std::chrono::milliseconds limit, const Act& act) {
  using Clock = std::chrono::steady_clock;
  Clock::time_point started;
  do {
    started = Clock::now();
    act();
  } while (Clock::now() - started > limit / 2);
}

void timeout(Node& node) {
  constexpr std::chrono::milliseconds kShort{100};
  constexpr int kLimit = 10000;  // for what is sure to come
  std::string set_and_read;
  in_time(kShort, [&] {
    set_and_read =
        join_results({node.section(kSectionPid, table_42(), kNow, kShort.count()), node.read()});
  });
  fact("timeout.100 ms: set read poll(1000) read read poll",
       {set_and_read, node.poll(kLimit), node.read(), node.read(), node.poll()});
  feed(packed(kSectionPid, section(0x42, 1, 20)));
  fact("timeout.section after it: read size(4096)", {node.read(), node.size(4096)});
  fact("timeout.start arms it again: start poll(1000) read",
       {node.start(), node.poll(kLimit), node.read()});
  in_time(kShort, [&node] {
    node.start();
    feed(packed(kSectionPid, section(0x42, 1, 20)));
  });
  // Times are over in their order: behind this one, the other's would be.
  Node later;
  later.section(kSectionPid + 1, table_42(), kNow, 300);
  later.poll(kLimit);
  fact("timeout.section in time, 300 ms later: reads poll", {node.drain(), node.poll()});
  Node blocking(O_RDWR);
  blocking.section(kSectionPid, table_42(), kNow, 100);
  fact("timeout.blocking read", blocking.read());
}

}  // namespace

void matching() {
  Node node;
  node.size(kLargeBuffer);
  const Bytes mix = join({section(0x42, 0x1122, 20, 1), section(0x43, 0x1122, 20, 1),
                          section(0x42, 0x1123, 20, 1), section(0x42, 0x3322, 20, 1),
                          section(0x42, 0x1122, 20, 2), section(0x40, 0x3344, 20, 3)});
  node.section(kSectionPid, {});
  feed(packed(kSectionPid, mix));
  fact("match.input", node.passed());
  for (const Match& row : kMatches) {
    const bool other = std::string(row.name).ends_with("5f/f0");
    try_match(node, row, other ? section(0x50, 0x1122, 20, 1) + mix : mix);
  }
  const Bytes one = section(0x42, 1, 30, 1);
  Bytes other = section(0x42, 2, 30, 1);
  other[17] ^= 0x80;
  try_match(node, {"match.byte 15 = section byte 17", {{15, one[17], 0xff, 0}}}, one + other);
  // Request byte 10 is section byte 12, and the sections have 12 bytes.
  const Bytes ends = section(0x42, 1, 12, 1) + section(0x42, 2, 12, 1);
  try_match(node, {"match.byte past the section's end = 42 (next table id)", {{10, 0x42, 0xff, 0}}},
            ends);
  try_match(node, {"match.byte past the section's end = ff (stuffing)", {{10, 0xff, 0xff, 0}}},
            ends);
}

void crc_oneshot_timeout() {
  Node node;
  crc(node);
  oneshot(node);
  timeout(node);
}

}  // namespace facts
