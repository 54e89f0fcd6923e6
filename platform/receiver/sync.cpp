// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/receiver/sync.h"

#include <array>

#include "platform/receiver/packet.h"

namespace qel::receiver {
namespace {

constexpr std::array<std::size_t, 3> kStrides = {188, 204, 192};
constexpr int kConfirmations = 3;

/// Sync bytes that follow at a stride; -1 where one is missing.
int followers(const std::uint8_t* data, std::size_t size, std::size_t stride) {
  int count = 0;
  for (std::size_t at = stride; count < kConfirmations && at < size; at += stride, ++count) {
    if (data[at] != kSyncByte) return -1;
  }
  return count;
}

}  // namespace

void Sync::lose() {
  locked_ = false;
  passed_ = stride_ - kPacketSize;
}

Sync::Verdict Sync::judge(const std::uint8_t* data, std::size_t size, std::size_t& stride) const {
  // A distance seen already, from the packet before, decides between strides
  // that are equally likely.
  std::size_t likely = 0;
  for (const std::size_t candidate : kStrides) {
    if (had_packet_ && passed_ + kPacketSize == candidate) likely = candidate;
  }
  int best = -1;
  for (const std::size_t candidate : kStrides) {
    const int count = followers(data, size, candidate);
    if (count < 0 || count < best || (count == best && candidate != likely)) continue;
    best = count;
    stride = candidate;
  }
  if (best < 0) return Verdict::kRejected;
  return best < kConfirmations ? Verdict::kUndecided : Verdict::kConfirmed;
}

Sync::Result Sync::search(const std::uint8_t* data, std::size_t size, std::size_t fresh) {
  for (std::size_t i = 0; i < size; ++i, ++passed_) {
    if (data[i] != kSyncByte) continue;
    std::size_t stride = stride_;
    const Verdict verdict = judge(data + i, size - i, stride);
    if (verdict == Verdict::kRejected) continue;
    const bool first = !had_packet_ && passed_ == 0;
    const std::size_t last = (size - i) % stride;  // how far the data goes past a boundary
    const bool whole = i >= fresh && (last == 0 || last == kPacketSize);
    if (verdict == Verdict::kUndecided && !first && !whole) return {i, false};
    stride_ = stride;
    passed_ = 0;
    locked_ = had_packet_ = true;
    return {i, true};
  }
  return {size, false};
}

}  // namespace qel::receiver
