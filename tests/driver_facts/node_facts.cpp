// SPDX-License-Identifier: LGPL-2.1-or-later
#include <unistd.h>

#include <memory>

#include "tests/driver_facts/facts.h"

namespace facts {
namespace {

// Requests of the kernel's that the element does not use.
constexpr unsigned long kGetCaps = 0x80086F30;
constexpr unsigned long kWithoutArgument = 0x6F63;

void requests_without_sense(Node& node) {
  int number = 1;
  std::array<char, 64> room{};
  fact("unknown.set-source(49) get-caps(48) read-size(57) pes-type(59) no-argument(99)",
       {node.control(KWRX_DMX_SET_SOURCE, &number), node.control(kGetCaps, room.data()),
        node.control(KWRX_DMX_GET_READ_SIZE, room.data()),
        node.control(KWRX_DMX_GET_PESTYPE, room.data()), node.control(kWithoutArgument)});
  fact("null-argument.set-filter set-pes-filter unknown-57",
       {node.control(KWRX_DMX_SET_FILTER), node.control(KWRX_DMX_SET_PES_FILTER),
        node.control(KWRX_DMX_GET_READ_SIZE)});
}

}  // namespace

void nodes() {
  fact("open.modes: rdonly|nonblock rdwr|nonblock wronly",
       {Node(O_RDONLY | O_NONBLOCK).opened(), Node().opened(), Node(O_WRONLY).opened()});
  Node node, blocking(O_RDWR), writer(O_WRONLY);
  fact("fresh.read: nonblock block wronly", {node.read(), blocking.read(), writer.read()});
  fact("open.wronly: set-pes-filter stop", {writer.pes(kPesPid, DMX_OUT_TAP), writer.stop()});
  fact("fresh.write", result(write(node.fd(), "x", 1)));
  fact("fresh.poll", node.poll());
  fact("fresh.start stop stop", {node.start(), node.stop(), node.stop()});
  fact("fresh.size-0", node.size(0));
  fact("fresh.size-8192-the-default then read", {node.size(8192), node.read()});
  fact("fresh.size-131072 then read poll", {node.size(131072), node.read(), node.poll()});
  requests_without_sense(node);

  std::vector<std::unique_ptr<Node>> open;
  do open.push_back(std::make_unique<Node>());
  while (open.back()->fd() >= 0);
  // The three above are open as well, the last one is not.
  fact("open.until-refused: open-nodes errno",
       {std::to_string(open.size() + 2), open.back()->opened()});
}

void record_node() {
  Node reader(O_RDONLY | O_NONBLOCK, "qel_dvr0"), writer(O_WRONLY, "qel_dvr0");
  fact("dvr.idle: reader read poll, writer poll read",
       {reader.read(), reader.poll(), writer.poll(), writer.read()});
  fact("dvr.open again: rdonly rdwr wronly",
       {Node(O_RDONLY, "qel_dvr0").opened(), Node(O_RDWR, "qel_dvr0").opened(),
        Node(O_WRONLY, "qel_dvr0").opened()});
  fact("dvr.start", reader.start());
  Node node;
  node.pes(kPesPid, DMX_OUT_TS_TAP);
  feed(mux().unit(kPesPid, Bytes(184, 'x')));
  fact("dvr.size with data, running: size read", {reader.size(1000), reader.read()});
  feed(mux().unit(kPesPid, Bytes(6 * std::size_t{184}, 'x')));
  fact("dvr.overflow of 1000 by packet 6: poll reads", {reader.poll(), reader.drain()});
}

void additions() {
  Node node;
  node.pes(kPesPid, DMX_OUT_TAP);
  feed(mux().unit(kPesPid, Bytes(184, 'x')));
  int source = 1;
  dmx_read_size waiting{};
  dmx_pes_type_query query{"/dev/decoder1", 99};
  fact("additions.set-source(49) read-size(57) of 184 pes-type(59) of /dev/decoder1",
       {node.control(KWRX_DMX_SET_SOURCE, &source), node.control(KWRX_DMX_GET_READ_SIZE, &waiting),
        std::to_string(waiting.size), node.control(KWRX_DMX_GET_PESTYPE, &query),
        std::to_string(query.pes_type)});
  feed(mux().unit(kPesPid, pes_packet()));
  node.drain();
  feed(mux().unit(kPesPid, pes_packet()));
  fact("additions.read-size of a PES packet of 500",
       {node.control(KWRX_DMX_GET_READ_SIZE, &waiting), std::to_string(waiting.size)});
  dmx_pes_type_query ours{"/dev/qel/vdec1", 99};
  fact("additions.pes-type of /dev/qel/vdec1",
       {node.control(KWRX_DMX_GET_PESTYPE, &ours), std::to_string(ours.pes_type)});
}

}  // namespace facts
