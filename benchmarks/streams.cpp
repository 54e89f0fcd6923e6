// SPDX-License-Identifier: LGPL-2.1-or-later
#include "benchmarks/streams.h"

#include <array>
#include <vector>

namespace streams {
namespace {

using stream::operator+=;

constexpr unsigned kFirstPmtPid = 0x20;
constexpr unsigned kServices = 20;
constexpr unsigned kFramesPerSecond = 50;

Bytes be16(unsigned value) {
  return {static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value)};
}

/// Whose packet it is; the PAT is the first one's.
unsigned service_of(const std::uint8_t* packet) {
  const unsigned pid = pid_in(packet);
  if (pid >= kFirstPid) return (pid - kFirstPid) / kPidsOfService;
  return pid >= kFirstPmtPid ? pid - kFirstPmtPid : 0;
}

Bytes pat(unsigned services) {
  Bytes payload;
  for (unsigned i = 0; i < services; i++)
    payload += stream::join({be16(i + 1), be16(0xE000 | (kFirstPmtPid + i))});
  return stream::table_section({.table_id = 0, .extension = 1}, payload);
}

Bytes pmt(unsigned service) {
  Bytes payload = stream::join({be16(0xE000 | pid_of(service, 0)), be16(0xF000)});
  for (unsigned i = 0; i < kPidsOfService; i++) {
    const std::uint8_t type = i == 0 ? 0x1B : 0x03;  // H.264, MPEG sound
    payload += stream::join({{type}, be16(0xE000 | pid_of(service, i)), be16(0xF000)});
  }
  return stream::table_section(
      {.table_id = 2, .extension = static_cast<std::uint16_t>(service + 1)}, payload);
}

/// `seconds` of `services` with pictures of `picture` bytes and sound of 192 kbit/s.
Bytes make_stream(unsigned services, unsigned seconds, std::size_t picture) {
  stream::Multiplex mux;
  Bytes all;
  for (unsigned frame = 0; frame < seconds * kFramesPerSecond; frame++) {
    const std::uint64_t stamp = 90000 + frame * 90000ULL / kFramesPerSecond;
    if (frame % 5 == 0) all += mux.sections(0, {pat(services)});
    for (unsigned service = 0; service < services; service++) {
      if (frame % 5 == 0) all += mux.sections(kFirstPmtPid + service, {pmt(service)});
      all += mux.unit(pid_of(service, 0), stream::pes_with_pts(0xE0, stamp, picture, false),
                      static_cast<std::int64_t>((stamp - 45000) * 300));
      for (unsigned i = 1; i < kPidsOfService; i++)
        all += mux.unit(pid_of(service, i), stream::pes_with_pts(0xC0, stamp, 480));
    }
  }
  return all;
}

/// The packets of services one after the other, a packet of each in turn, as a multiplexer
/// sends them.
Bytes in_turn(const Bytes& bytes, unsigned services) {
  std::vector<std::vector<const std::uint8_t*>> queues(services);
  for (std::size_t at = 0; at < bytes.size(); at += stream::kPacketSize)
    queues[service_of(bytes.data() + at)].push_back(bytes.data() + at);
  Bytes out;
  out.reserve(bytes.size());
  for (std::size_t i = 0; out.size() < bytes.size(); i++) {
    for (const auto& queue : queues)
      if (i < queue.size()) out.insert(out.end(), queue[i], queue[i] + stream::kPacketSize);
  }
  return out;
}

/// The same packets on the PIDs of the first service.
Bytes as_one_service(Bytes bytes) {
  std::array<std::uint8_t, kPidsOfService> counters{};
  for (std::size_t at = 0; at < bytes.size(); at += stream::kPacketSize) {
    std::uint8_t* packet = bytes.data() + at;
    const unsigned pid = pid_in(packet);
    if (pid < kFirstPid) continue;
    const unsigned index = (pid - kFirstPid) % kPidsOfService;
    packet[1] = static_cast<std::uint8_t>((packet[1] & 0xE0) | pid_of(0, index) >> 8);
    packet[2] = static_cast<std::uint8_t>(pid_of(0, index));
    const bool payload = packet[3] & 0x10;
    packet[3] = static_cast<std::uint8_t>((packet[3] & 0xF0) | counters[index]);
    if (payload) counters[index] = (counters[index] + 1) & 0x0F;
  }
  return bytes;
}

}  // namespace

unsigned pid_of(unsigned service, unsigned index) {
  return kFirstPid + service * kPidsOfService + index;
}

unsigned pid_in(const std::uint8_t* packet) { return (packet[1] << 8 | packet[2]) & 0x1FFF; }

const Bytes& programme() {
  static const Bytes bytes = make_stream(1, 240, 30000);
  return bytes;
}

const Bytes& multiplex() {
  static const Bytes bytes = in_turn(make_stream(kServices, 12, 7500), kServices);
  return bytes;
}

const Bytes& on_three_pids() {
  static const Bytes bytes = as_one_service(multiplex());
  return bytes;
}

}  // namespace streams
