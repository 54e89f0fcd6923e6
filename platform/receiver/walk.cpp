// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/receiver/feeder.h"

namespace qel::receiver {

namespace state = pid_state;

namespace {

constexpr std::size_t kAhead = 16 * kPacketSize;  // bytes between use and prefetch
using namespace header_bits;

}  // namespace

/// One more packet of a PID that one filter wants, and of whose adaptation field nobody
/// wants anything: most of what is wanted; with it those behind it that go the same way.
/// Gives their number, 0 where the first has to be looked at.
inline std::size_t Feeder::quick(const std::uint8_t* data, std::size_t count) {
  const Packet packet(data);
  auto& [pid, route] = input_.pids.entries()[packet.pid()];
  if (!route || !route->only) return 0;
  if (route->recorded) return record(data, count);
  if (packet.scrambled()) return 0;
  const std::size_t stride = input_.sync.stride();
  const std::uint32_t header = load_be32(data);
  std::size_t taken = 0;
  if ((header & (kAdaptation | kUnitStart)) == 0)
    taken = pes_to_only({header, data, stride, count}, *route->only);
  if (taken == 0) {
    if ((pid & state::kClock) && packet.has_pcr()) return 0;
    if (!pes_to_only(packet, *route->only)) return 0;
    taken = 1 + pes_to_only({next_header(header), data + stride, stride, count - 1}, *route->only);
  }
  pid = state::counted(pid, load_be32(data + (taken - 1) * stride), taken);
  return taken;
}

/// Goes through up to `count` packets that follow each other in sync. Gives
/// the number it got through: fewer where a sync byte is missing, or where
/// the call was cancelled.
std::size_t Feeder::walk(const std::uint8_t* data, std::size_t count) {
  const std::size_t stride = input_.sync.stride();
  PidTable::Entry* const entries = input_.pids.entries();
  std::uint64_t scrambled = 0;
  std::size_t done = 0;
  for (; done < count; ++done, data += stride) {
    __builtin_prefetch(data + kAhead);
    const std::uint32_t header = load_be32(data);
    if ((header & (kSync | kTransportError)) != kSyncWithoutError) {
      if ((header & kSync) != kSyncWithoutError) break;
      ++input_.counters.transport_errors;
      continue;
    }
    std::uint64_t& pid = entries[(header >> 8) & 0x1fff].state;
    const std::uint64_t new_in_it = state::news(header, pid);
    if ((new_in_it | (header & input_.wanted_bits)) == 0) {
      pid = state::counted(pid, header);
      scrambled += (header & kScrambled) != 0;
      continue;
    }
    if (new_in_it == state::kWanted && (header & input_.wanted_bits) == 0 &&
        (header & kPayload) != 0) {
      if (const std::size_t run = quick(data, count - done)) {
        done += run - 1;
        data += (run - 1) * stride;
        continue;
      }
    }
    if (!look_at(data)) break;
  }
  input_.counters.packets += done;
  input_.counters.scrambled += scrambled;
  return done;
}

/// A packet that is not just one more of its PID. False: the call is cancelled.
bool Feeder::look_at(const std::uint8_t* data) {
  const Packet packet(data);
  std::uint64_t& pid = input_.pids.entries()[packet.pid()].state;
  const Continuity continuity = follow(packet, pid);
  if (packet.scrambled() && packet.has_payload()) ++input_.counters.scrambled;
  const bool wanted = (pid & state::kWanted) || (load_be32(data) & input_.wanted_bits);
  if (!wanted || continuity == Continuity::kRepeat) return true;
  return dispatch(packet, continuity == Continuity::kLost);
}

Feeder::Continuity Feeder::follow(const Packet& packet, std::uint64_t& pid) {
  const bool announced = packet.discontinuity();
  const std::uint64_t next = (packet.counter() + 1) & state::kCounter;
  pid += state::kOnePacket;
  if ((pid >> state::kIgnoreShift & state::kCompared) == state::kCompared) {
    return Continuity::kInOrder;
  }
  // Without a payload the counter stands still.
  if (!packet.has_payload() && !announced) return Continuity::kInOrder;

  const bool known = pid & state::kKnown;
  const std::uint64_t expected = pid & state::kCounter;
  if (known && !announced && next == expected && !(pid & state::kRepeated)) {
    pid |= state::kRepeated;
    ++input_.counters.repeated;
    return Continuity::kRepeat;
  }
  pid = (pid & ~(state::kCounter | state::kRepeated)) | state::kKnown | next;
  if (!known || !packet.has_payload() || packet.counter() == expected) return Continuity::kInOrder;
  if (!announced) {
    ++input_.counters.discontinuities;
    ++input_.pids.rare(packet.pid()).discontinuities;
  }
  return Continuity::kLost;
}

}  // namespace qel::receiver
