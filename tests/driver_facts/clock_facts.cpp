// SPDX-License-Identifier: LGPL-2.1-or-later
#include <qel/receiver.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "tests/driver_facts/facts.h"
#include "tests/support/test_node.h"

namespace facts {
namespace {

std::string get_stc(Node& node, unsigned number, dmx_stc& stc) {
  stc.num = number;
  return node.control(KWRX_DMX_GET_STC, &stc);
}

std::uint64_t packets_so_far() {
  qel_pid_counters counters{};
  qel_receiver_get_pid_counters(0, DMX_IN_FRONTEND, kPesPid, &counters);
  return counters.packets;
}

std::string yes(bool value) { return value ? "yes" : "no"; }

}  // namespace

void clocks() {
  Node clock, video, port(O_RDONLY | O_NONBLOCK, "vdec0");
  dmx_stc stc{}, later{};
  fact("stc.no pcr yet, bad number", {get_stc(clock, 0, stc), get_stc(clock, 9, stc)});
  clock.pes(kPesPid, DMX_OUT_DECODER, DMX_PES_PCR0);
  const std::uint64_t before_clock = packets_so_far();
  feed(pcr(kPesPid, 900000));
  const std::string got = get_stc(clock, 0, stc);
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  get_stc(clock, 0, later);
  // In units of 90 kHz.
  const std::uint64_t base = std::max(stc.base, 1U);
  const std::uint64_t ahead = stc.stc / base - 900000;
  const std::uint64_t step = (later.stc - stc.stc) / base;
  fact("stc.pcr 900000: get base near advances-90khz",
       {got, std::to_string(stc.base), yes(ahead <= 9000), yes(step > 17000)});

  video.pes(kPesPid, DMX_OUT_DECODER, DMX_PES_VIDEO0);
  const std::uint64_t before_video = packets_so_far();
  feed(mux().unit(kPesPid, pes_packet()));
  const std::uint64_t now = packets_so_far();
  const auto row = [&](unsigned type, std::uint64_t before, const Node& node) {
    return join_results({std::to_string(type), std::to_string(kPesPid),
                         std::to_string(now - before),
                         std::to_string(vantrel::test::counters_of(node.fd()).records)});
  };
  fact("decoders: type pid packets starts",
       row(DMX_PES_VIDEO0, before_video, video) + ", " + row(DMX_PES_PCR0, before_clock, clock));
}

}  // namespace facts
