// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tests/driver_facts/facts.h"
#include "tests/support/process.h"

namespace facts {
namespace {

void short_reads(Node& node) {
  const Bytes two = section(0x42, 1, 20) + section(0x42, 2, 30);
  feed(packed(kSectionPid, two));
  fact("section.short-reads 0 2 1 5 big big",
       {node.read(0), node.read(2), node.read(1), node.read(5), node.read(), node.read()});
  feed(packed(kSectionPid, two));
  fact("section.short-reads 3 big 10 big", {node.read(3), node.read(), node.read(10), node.read()});
}

void sizes(Node& node) {
  const Bytes one = section(0x42, 1, 20), two = section(0x42, 2, 30);
  feed(join({packed(kSectionPid, section(0x42, 1, 4096) + one),
             packed(kSectionPid, section(0x42, 1, 4097) + one), packed(kSectionPid, two)}));
  fact("section.sizes 4096+20 4097+20 30", node.drain());
  feed(packed(kSectionPid,
              join({stream::short_section(0x42, 3), stream::short_section(0x42, 4), one})));
  fact("section.sizes 3 4 20", node.drain());
}

void stop_and_start(Node& node) {
  const Bytes one = section(0x42, 1, 20), two = section(0x42, 2, 30);
  feed(packed(kSectionPid, one));
  fact("section.stop with one queued: stop read poll", {node.stop(), node.read(), node.poll()});
  feed(packed(kSectionPid, one));
  fact("section.stopped: read stop", {node.read(), node.stop()});
  fact("section.start: start read", {node.start(), node.read()});
  feed(packed(kSectionPid, one));
  fact("section.start while running with one queued: start read", {node.start(), node.read()});
  feed(packed(kSectionPid, one + two));
  node.read(5);
  fact("section.start after part of a section was read: start read", {node.start(), node.read()});
  feed(packed(kSectionPid, two));
  fact("section.start, next section", node.drain());
}

void changes(Node& node) {
  const Bytes one = section(0x42, 1, 20), two = section(0x42, 2, 30);
  feed(packed(kSectionPid, one));
  fact("section.size while running: other same", {node.size(4096), node.size(kLargeBuffer)});
  fact("section.refused size keeps the queue", node.drain());
  feed(packed(kSectionPid, one));
  fact("section.set-filter while running with one queued: set read",
       {node.section(kSectionPid + 1), node.read()});
  feed(packed(kSectionPid, one) + packed(kSectionPid + 1, two));
  fact("section.set-filter, sections of old(20) and new(30) pid", node.drain());
  fact("section.pids 0x1fff 0x2000 0xffff; start after the last",
       {node.section(0x1fff), node.section(0x2000), node.section(0xffff), node.start()});
  fact("section.size after a failed set", node.size(4096));
  fact("section.set without start: set read poll",
       {node.section(kSectionPid, table_42(), 0), node.read(), node.poll()});
  feed(packed(kSectionPid, one));
  fact("section.set without start, one fed: read", node.read());
}

}  // namespace

void section_reading() {
  Node node;
  fact("section.set", {node.size(kLargeBuffer), node.section(kSectionPid)});
  fact("section.idle: read poll", {node.read(), node.poll()});
  feed(packed(kSectionPid,
              join({section(0x42, 1, 20), section(0x42, 2, 300), section(0x42, 3, 1024)})));
  fact("section.three-queued: poll reads... poll", {node.poll(), node.drain(), node.poll()});
  short_reads(node);
  sizes(node);
  stop_and_start(node);
  changes(node);

  Node blocking(O_RDWR);
  blocking.section(kSectionPid);
  vantrel::test::Background reader([&] {
    return join_results({blocking.read(), blocking.read()});
  });
  reader.waits();
  feed(packed(kSectionPid, section(0x42, 1, 20) + section(0x42, 2, 30)));
  fact("section.blocking reads 131072 131072", reader.result());
}

void overflows() {
  Node node;
  const auto feed_section = [](std::uint16_t extension, std::size_t size) {
    feed(packed(kSectionPid, section(0x42, extension, size)));
  };
  node.size(1024);
  node.section(kSectionPid);
  for (std::uint16_t i = 0; i < 3; ++i) feed_section(i, 300);
  fact("overflow.900 of 1024 queued: poll", node.poll());
  feed_section(3, 300);
  feed_section(4, 20);
  fact("overflow.one more of 300 then one of 20: poll reads poll",
       {node.poll(), node.drain(), node.poll()});
  feed_section(5, 20);
  fact("overflow.next section", node.drain());
  feed_section(0, 1023);
  fact("overflow.section of size-1: poll reads", {node.poll(), node.drain()});
  feed_section(0, 1024);
  fact("overflow.section of size: poll reads", {node.poll(), node.drain()});
  for (std::uint16_t i = 0; i < 3; ++i) feed_section(i, 300);
  const std::string part = node.read(10);
  for (std::uint16_t i = 0; i < 2; ++i) feed_section(i, 300);
  fact("overflow.after 10 bytes of a section: read(10) read read", {part, node.drain()});
  feed(packed(kSectionPid, section(0x42, 0, 100) + section(0x42, 0, 300)));
  fact("overflow.then sections of 100 and 300", node.drain());
  feed_section(0, 100);
  fact("overflow.then a section of 100", node.drain());
  for (std::uint16_t i = 0; i < 4; ++i) feed_section(i, 300);
  fact("overflow.start clears it: start poll read", {node.start(), node.poll(), node.read()});
}

}  // namespace facts
