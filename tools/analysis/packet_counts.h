// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <vector>

#include "tools/analysis/packet.h"
#include "tools/analysis/packet_reader.h"

namespace analysis {

/// Packets of each PID and the time that they took, by the stream's own clocks:
/// what is known while a stream runs, however long it is. What PacketPass keeps
/// for evaluate() grows with it.
class PacketCounts : private PacketSink {
 public:
  struct Pid {
    std::uint64_t packets = 0;
    std::uint64_t scrambled = 0;
  };

  explicit PacketCounts(unsigned packet_size) : reader_(packet_size, this), pids_(kPids) {}
  PacketCounts(const PacketCounts&) = delete;
  PacketCounts& operator=(const PacketCounts&) = delete;

  void add(std::span<const std::uint8_t> piece) { reader_.add(piece); }
  /// After the last piece.
  void finish() { reader_.finish(); }

  [[nodiscard]] const Pid& pid(unsigned pid) const { return pids_[pid]; }
  [[nodiscard]] std::uint64_t packets() const { return packets_; }
  /// How long the stream is so far, by the PID with the longest run of PCRs.
  [[nodiscard]] double seconds() const { return longest().seconds; }
  /// Bits a second of the whole stream, packets of 188 bytes. Nothing where there
  /// are no two PCRs.
  [[nodiscard]] std::optional<double> bits_per_second() const;
  /// Bits a second of so many packets of it.
  [[nodiscard]] std::optional<double> bits_per_second(std::uint64_t packets) const;

 private:
  /// Pieces of a PID's clock, jumps left out.
  struct Run {
    std::uint64_t last = 0;  // PCR
    std::uint64_t last_packet = 0;
    double seconds = 0;
    std::uint64_t packets = 0;  // of the whole stream in that time
  };

  void packet(const std::uint8_t* bytes, std::uint64_t number) override;
  void sync_byte_error(std::uint64_t) override {}
  void sync_loss(std::uint64_t) override {}
  [[nodiscard]] Run longest() const;

  PacketReader reader_;
  std::uint64_t packets_ = 0;
  std::vector<Pid> pids_;
  std::map<unsigned, Run> runs_;  // by PID
};

}  // namespace analysis
