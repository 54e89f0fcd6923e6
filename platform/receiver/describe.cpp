// SPDX-License-Identifier: LGPL-2.1-or-later
#include <errno.h>
#include <qel/receiver.h>

#include <array>
#include <cstring>
#include <iomanip>
#include <sstream>

#include "platform/receiver/counters.h"
#include "platform/receiver/receiver.h"

namespace qel::receiver {
namespace {

constexpr std::array<const char*, 8> kKindNames = {"unset",  "section", "PES to decoder", "PES tap",
                                                   "TS tap", "TEMI",    "record",         "port"};
static_assert(kKindNames.size() == QEL_NODE_PORT + 1);

struct InputField {
  const char* name;
  std::uint64_t qel_input_counters::*value;
};

constexpr std::array<InputField, 10> kInputFields = {{
    {"bytes", &qel_input_counters::bytes},
    {"packets", &qel_input_counters::packets},
    {"null", &qel_input_counters::null_packets},
    {"skipped bytes", &qel_input_counters::skipped_bytes},
    {"sync losses", &qel_input_counters::sync_losses},
    {"transport errors", &qel_input_counters::transport_errors},
    {"scrambled", &qel_input_counters::scrambled},
    {"discontinuities", &qel_input_counters::discontinuities},
    {"repeated", &qel_input_counters::repeated},
    {"flushed bytes", &qel_input_counters::flushed},
}};
static_assert(sizeof(qel_input_counters) == kInputFields.size() * sizeof(std::uint64_t));

void print_pid(std::ostream& out, unsigned pid) {
  out << "0x" << std::hex << std::setw(4) << std::setfill('0') << pid << std::dec
      << std::setfill(' ');
}

void describe_input(std::ostream& out, Demux& demux, dmx_input number) {
  const qel_input_counters counters = input_counters(demux, number);
  if (counters.bytes == 0 && counters.flushed == 0) return;
  out << (number == DMX_IN_FRONTEND ? "  front-end:" : "  DVR:");
  for (const InputField& field : kInputFields)
    out << ' ' << counters.*field.value << ' ' << field.name << ',';
  out.seekp(-1, std::ios_base::cur) << '\n';
  for (unsigned pid = 0; pid <= kNullPid; ++pid) {
    const qel_pid_counters each = pid_counters(demux, number, pid);
    if (each.packets == 0) continue;
    out << "    pid ";
    print_pid(out, pid);
    out << ": " << each.packets << " packets, " << each.discontinuities << " discontinuities, "
        << each.sections << " sections, " << each.section_errors << " section errors, "
        << each.crc_errors << " CRC errors\n";
  }
}

void describe_node(std::ostream& out, const qel_node_counters& node) {
  out << "  " << node.name << " fd " << node.fd << ": "
      << kKindNames[static_cast<std::size_t>(node.kind)]
      << (node.running ? ", running" : ", stopped");
  if (node.pid <= kAllPids) {
    out << ", pid ";
    print_pid(out, node.pid);
  }
  out << ", " << node.waiting << " of " << node.buffer_size << " bytes wait, " << node.records
      << " records, " << node.bytes << " bytes, " << node.crc_errors << " CRC errors, "
      << node.dropped << " dropped, " << node.overflows << " overflows\n";
}

}  // namespace
}  // namespace qel::receiver

char* qel_receiver_describe(unsigned int number) {
  using namespace qel::receiver;
  Demux* demux = find_demux(number);
  if (!demux) return nullptr;
  std::ostringstream out;
  out << "demux " << number << '\n';
  for (const dmx_input input : {DMX_IN_FRONTEND, DMX_IN_DVR}) describe_input(out, *demux, input);
  for (const qel_node_counters& node : node_counters(*demux)) describe_node(out, node);
  return strdup(out.str().c_str());
}
