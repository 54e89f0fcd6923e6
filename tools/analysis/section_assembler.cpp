// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/analysis/section_assembler.h"

#include "common/byte_reader.h"

namespace analysis {
namespace {

constexpr std::size_t kHeader = 3;
constexpr std::uint8_t kStuffing = 0xFF;

}  // namespace

void SectionAssembler::reset() {
  pending_.clear();
  synced_ = false;
}

void SectionAssembler::add(std::span<const std::uint8_t> payload, bool unit_start,
                           std::uint64_t packet, const Take& take) {
  if (payload.empty()) return;
  if (!unit_start) {
    if (synced_) append(payload, packet, take);
    return;
  }
  const std::size_t pointer = payload[0];
  payload = payload.subspan(1);
  if (pointer > payload.size()) return reset();
  if (synced_ && !pending_.empty()) append(payload.first(pointer), packet, take);
  pending_.clear();
  synced_ = true;
  append(payload.subspan(pointer), packet, take);
}

void SectionAssembler::append(std::span<const std::uint8_t> bytes, std::uint64_t packet,
                              const Take& take) {
  if (pending_.empty()) first_packet_ = packet;
  pending_.insert(pending_.end(), bytes.begin(), bytes.end());
  std::size_t at = 0;
  while (at < pending_.size() && pending_[at] != kStuffing) {
    const std::span<const std::uint8_t> rest = std::span(pending_).subspan(at);
    if (rest.size() < kHeader) break;
    const std::size_t size = kHeader + vantrel::read_length(rest.data() + 1);
    if (rest.size() < size) break;
    take({rest.first(size), first_packet_, packet});
    first_packet_ = packet;
    at += size;
  }
  // Behind stuffing nothing begins until the next pointer_field.
  if (at < pending_.size() && pending_[at] == kStuffing) return reset();
  pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(at));
}

}  // namespace analysis
