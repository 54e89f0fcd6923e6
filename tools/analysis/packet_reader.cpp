// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/analysis/packet_reader.h"

#include <algorithm>

namespace analysis {
namespace {

constexpr std::uint8_t kSync = 0x47;
constexpr std::size_t kInARow = 5;

}  // namespace

void PacketReader::add(std::span<const std::uint8_t> piece) {
  if (!rest_.empty()) {
    // With this much more the packet that was cut is whole, or no sync is in it.
    const std::size_t lent = std::min(piece.size(), kInARow * stride_);
    rest_.insert(rest_.end(), piece.begin(), piece.begin() + static_cast<std::ptrdiff_t>(lent));
    const std::size_t left = run(rest_);
    if (lent == piece.size()) {
      rest_.erase(rest_.begin(), rest_.end() - static_cast<std::ptrdiff_t>(left));
      return;
    }
    piece = piece.subspan(lent - left);
  }
  const std::size_t left = run(piece);
  rest_.assign(piece.end() - static_cast<std::ptrdiff_t>(left), piece.end());
}

void PacketReader::finish() {
  ended_ = true;
  const std::size_t left = run(rest_);
  skipped_ += synced_ ? left : base_ + left - lost_at_;
}

/// Takes what it can; returns how many bytes are left.
std::size_t PacketReader::run(std::span<const std::uint8_t> bytes) {
  bytes_ = bytes;
  begin_ = 0;
  while (synced_ ? take_packets() : hunt()) {
  }
  base_ += begin_;
  return available();
}

/// False when it needs more bytes, true when sync is lost.
bool PacketReader::take_packets() {
  // Behind each packet the next sync byte is looked at.
  while (available() > stride_ || (ended_ && available() >= kPacketLength)) {
    if (*at(0) != kSync && !take_wrong_sync()) return true;
    sink_->packet(at(0), number_++);
    begin_ += std::min(stride_, available());
  }
  return false;
}

/// False when sync is lost with it.
bool PacketReader::take_wrong_sync() {
  sink_->sync_byte_error(number_);
  if (available() <= stride_ || *at(stride_) == kSync) return true;
  sink_->sync_byte_error(number_ + 1);
  sink_->sync_loss(number_);
  synced_ = false;
  lost_at_ = base_ + begin_;
  return false;
}

/// Sync bytes at this place and where the next packets' are. At the end of the
/// stream those that fit must do.
bool PacketReader::has_sync(std::size_t distance) const {
  std::size_t found = 0;
  for (; found < kInARow && distance < available(); distance += stride_, found++)
    if (*at(distance) != kSync) return false;
  return found == kInARow || (ended_ && found > 1);
}

/// True when sync is found, false when more bytes are needed for that.
bool PacketReader::hunt() {
  const std::size_t span = (kInARow - 1) * stride_;
  const std::size_t last = ended_ ? available() : available() - std::min(span, available());
  for (std::size_t distance = 0; distance < last; distance++) {
    if (!has_sync(distance)) continue;
    begin_ += distance;
    synced_ = true;
    const std::uint64_t gap = base_ + begin_ - lost_at_;
    if (!alignments_.empty()) number_ += gap / stride_;
    skipped_ += gap;
    alignments_.push_back({number_, base_ + begin_});
    return true;
  }
  begin_ += last;
  return false;
}

}  // namespace analysis
