// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "tools/analysis/packet.h"

namespace analysis {

/// Where packets of a stream are: from a packet on, one per packet size.
struct Alignment {
  std::uint64_t packet;
  std::uint64_t offset;
};

/// Takes what the reader finds, in the order of the stream.
class PacketSink {
 public:
  virtual ~PacketSink() = default;
  /// 188 bytes, good during the call. A single wrong sync byte is no loss: such
  /// a packet comes too, behind sync_byte_error().
  virtual void packet(const std::uint8_t* bytes, std::uint64_t number) = 0;
  virtual void sync_byte_error(std::uint64_t number) = 0;
  virtual void sync_loss(std::uint64_t number) = 0;
};

/// Cuts a stream, which comes in pieces of any size, into packets and gives them,
/// numbered from 0, to the sink. Sync is found where five sync bytes are in a row
/// and lost where two in a row are wrong (TR 101 290, 1.1). Bytes without sync
/// count as the packets that would fit into them.
class PacketReader {
 public:
  /// `packet_size`: 188, 192 or 204, the distance of sync bytes.
  PacketReader(unsigned packet_size, PacketSink* sink) : stride_(packet_size), sink_(sink) {}

  void add(std::span<const std::uint8_t> piece);
  /// After the last piece.
  void finish();

  /// The number behind the last packet's.
  [[nodiscard]] std::uint64_t packets() const { return number_; }
  /// Bytes outside packets.
  [[nodiscard]] std::uint64_t skipped() const { return skipped_; }
  [[nodiscard]] unsigned packet_size() const { return static_cast<unsigned>(stride_); }
  [[nodiscard]] const std::vector<Alignment>& alignments() const { return alignments_; }

 private:
  [[nodiscard]] std::size_t available() const { return bytes_.size() - begin_; }
  [[nodiscard]] const std::uint8_t* at(std::size_t distance) const {
    return bytes_.data() + begin_ + distance;
  }
  std::size_t run(std::span<const std::uint8_t> bytes);
  bool take_packets();
  bool take_wrong_sync();
  [[nodiscard]] bool has_sync(std::size_t distance) const;
  bool hunt();

  std::size_t stride_;
  PacketSink* sink_;
  std::vector<std::uint8_t> rest_;       // the end of the last piece
  std::span<const std::uint8_t> bytes_;  // during run()
  std::size_t begin_ = 0;                // of what is left in bytes_
  std::uint64_t base_ = 0;               // of bytes_ in the stream
  bool ended_ = false;
  bool synced_ = false;
  std::uint64_t lost_at_ = 0;
  std::uint64_t number_ = 0;
  std::uint64_t skipped_ = 0;
  std::vector<Alignment> alignments_;
};

}  // namespace analysis
