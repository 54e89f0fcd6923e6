// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tests/receiver_fuzz/random_stream.h"

#include <algorithm>
#include <utility>

namespace fuzz {

using stream::kPacketSize;
using stream::operator+;

Bytes Random::bytes(std::size_t count) {
  Bytes all(count);
  for (std::uint8_t& each : all) each = byte();
  return all;
}

Bytes RandomStream::packets(std::size_t count) {
  Bytes all;
  all.reserve(count * kPacketSize);
  std::size_t kind = 0;  // now and then the same several times
  while (all.size() < count * kPacketSize) {
    if (!random_.one_in(3)) kind = random_.below(kSectionPids + kPesPids + 2);
    unsigned pid = stream::kNullPid;
    if (kind < kSectionPids) pid = static_cast<unsigned>(kFirstSectionPid + kind);
    if (kind >= kSectionPids) pid = static_cast<unsigned>(kFirstPesPid + kind - kSectionPids);
    if (kind == kSectionPids + kPesPids) pid = kTemiPid;
    if (kind > kSectionPids + kPesPids) pid = stream::kNullPid;
    Bytes packet = next(pid);
    if (happens(damage_.lost)) continue;
    spoil(packet);
    all.insert(all.end(), packet.begin(), packet.end());
    if (happens(damage_.repeated)) all.insert(all.end(), packet.begin(), packet.end());
  }
  return all;
}

/// The PID's next packet.
Bytes RandomStream::next(unsigned pid) {
  Bytes& waiting = waiting_[pid];
  if (waiting.empty()) waiting = make(pid);
  Bytes packet = stream::slice(waiting, 0, kPacketSize);
  waiting.erase(waiting.begin(), waiting.begin() + kPacketSize);
  return packet;
}

Bytes RandomStream::make(unsigned pid) {
  if (pid == stream::kNullPid) return mux_.null_packets(1);
  if (pid == kTemiPid) return temi();
  if (pid < kFirstPesPid) return sections(pid);
  if (random_.one_in(4)) {
    stream::Header header;
    header.pcr = pcr_ += static_cast<std::int64_t>(random_.below(2700000));
    header.discontinuity = random_.one_in(16);
    return mux_.packet(pid, {}, header);
  }
  // Some fill their packets without stuffing, so that the next goes on at once.
  constexpr std::size_t kPesHeader = 9, kPayload = kPacketSize - 4;
  const std::size_t size = random_.one_in(3)
                               ? random_.from_to(1, kLargestPes / kPayload) * kPayload - kPesHeader
                               : random_.below(kLargestPes);
  return mux_.unit(pid, stream::pes(0xe0, size, !random_.one_in(4)));
}

Bytes RandomStream::sections(unsigned pid) {
  std::vector<Bytes> list(random_.from_to(1, 6));
  for (Bytes& each : list) {
    const auto table_id = static_cast<std::uint8_t>(random_.from_to(0x40, 0x47));
    const std::size_t size =
        random_.one_in(8) ? random_.from_to(12, 4096) : random_.from_to(12, 400);
    each = stream::section(table_id, static_cast<std::uint16_t>(random_.below(4)), size);
    if (random_.one_in(5)) each = stream::short_section(table_id, random_.from_to(3, 30));
    if (random_.one_in(10)) each = stream::with_bad_crc(std::move(each));
  }
  return mux_.sections(pid, list);
}

Bytes RandomStream::temi() {
  constexpr std::size_t kFieldLength = 4, kFlags = 5, kExtension = 6;
  Bytes packet = mux_.packet(kTemiPid, stream::counting(60));
  packet[kFlags] = 1;
  Bytes extension = {0x0f};
  for (std::size_t i = random_.below(4); i > 0; --i) {
    const std::size_t size = random_.below(20);
    extension =
        std::move(extension) +
        Bytes{static_cast<std::uint8_t>(random_.from_to(3, 7)), static_cast<std::uint8_t>(size)} +
        random_.bytes(size);
  }
  const std::size_t room = packet[kFieldLength] - 2U;
  extension.resize(std::min(extension.size(), room));
  packet[kExtension] = static_cast<std::uint8_t>(extension.size());
  std::copy(extension.begin(), extension.end(), packet.begin() + kExtension + 1);
  return packet;
}

void RandomStream::spoil(Bytes& packet) {
  if (happens(damage_.transport_error)) packet[1] |= 0x80;
  if (happens(damage_.scrambled)) packet[3] |= stream::kScrambled;
  if (!happens(damage_.flipped_bit)) return;
  // Mostly where lengths and flags are.
  const std::size_t at = random_.from_to(1, random_.one_in(4) ? kPacketSize - 1 : 20);
  packet[at] ^= static_cast<std::uint8_t>(1U << random_.below(8));
}

}  // namespace fuzz
