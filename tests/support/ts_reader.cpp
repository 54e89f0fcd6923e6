// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tests/support/ts_reader.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>

namespace stream {
namespace {

constexpr std::size_t kPacket = 188;

unsigned pid_of(const std::string& packet) {
  return (byte_at(packet, 1) & 0x1F) << 8 | byte_at(packet, 2);
}

bool has_payload(const std::string& packet) { return (byte_at(packet, 3) & 0x10) != 0; }

unsigned counter_of(const std::string& packet) { return byte_at(packet, 3) & 0xF; }

template <typename Visit>
void for_each_packet(const std::string& file, Visit&& visit) {
  for (std::size_t at = 0; at + kPacket <= file.size(); at += kPacket)
    visit(file.substr(at, kPacket));
}

}  // namespace

std::string load(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void save(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

std::string captured(const std::string& name) {
  const char* folder = std::getenv("VANTREL_STREAMS");
  return folder != nullptr ? std::string(folder) + "/" + name : "";
}

unsigned byte_at(const std::string& bytes, std::size_t at) {
  return static_cast<std::uint8_t>(bytes[at]);
}

std::vector<Payload> payloads(const std::string& file, unsigned pid) {
  std::vector<Payload> list;
  std::string before;
  for_each_packet(file, [&](const std::string& packet) {
    const bool damaged = (byte_at(packet, 1) & 0x80) != 0 || (byte_at(packet, 3) & 0xC0) != 0;
    if (pid_of(packet) != pid || damaged || !has_payload(packet) || packet == before) return;
    const std::size_t start = (byte_at(packet, 3) & 0x20) != 0 ? 5 + byte_at(packet, 4) : 4;
    const bool follows = !before.empty() && counter_of(packet) == ((counter_of(before) + 1) & 0xF);
    if (start < kPacket)
      list.push_back({packet.substr(start), (byte_at(packet, 1) & 0x40) != 0, follows});
    before = packet;
  });
  return list;
}

std::string elementary_bytes(const std::string& file, unsigned pid) {
  std::string bytes;
  for (const Payload& payload : payloads(file, pid))
    if (payload.unit_start || !bytes.empty()) bytes += payload.bytes;
  return bytes;
}

std::string packets_of(const std::string& file, const std::set<unsigned>& pids) {
  std::string packets;
  for_each_packet(file, [&](const std::string& packet) {
    if (pids.contains(pid_of(packet))) packets += packet;
  });
  return packets;
}

std::set<unsigned> pids_of(const std::string& file) {
  std::set<unsigned> pids;
  for_each_packet(file, [&](const std::string& packet) { pids.insert(pid_of(packet)); });
  return pids;
}

std::size_t discontinuities(const std::string& file) {
  std::map<unsigned, unsigned> counters;
  std::size_t count = 0;
  for_each_packet(file, [&](const std::string& packet) {
    const auto known = counters.find(pid_of(packet));
    const unsigned step = has_payload(packet) ? 1 : 0;
    if (known != counters.end() && counter_of(packet) != ((known->second + step) & 0xF)) count++;
    counters[pid_of(packet)] = counter_of(packet);
  });
  return count;
}

}  // namespace stream
