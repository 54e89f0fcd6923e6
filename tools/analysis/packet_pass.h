// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/analysis/checks.h"
#include "tools/analysis/packet.h"
#include "tools/analysis/packet_reader.h"
#include "tools/analysis/section_assembler.h"

namespace analysis {

inline constexpr unsigned kNullPid = 0x1FFF;
inline constexpr int kNoTable = -1;

/// A programme clock reference as it was found.
struct PcrSample {
  std::uint64_t packet;
  std::uint64_t value;   // of 27 MHz, modulo 2^33 * 300
  std::uint32_t losses;  // of sync, before it
  bool signalled;        // a discontinuity was announced since the last one
};

struct SectionTime {
  std::uint64_t first_packet;
  std::uint64_t last_packet;
  std::uint8_t number;
};

/// Sections of one PID, table id and table id extension, in order.
struct SubTable {
  std::vector<SectionTime> sections;
  std::map<unsigned, std::uint32_t> checksums;  // of the latest, by section_number
  std::uint64_t bytes = 0;
};

struct SubTableKey {
  unsigned pid;
  unsigned table_id;
  unsigned extension;
  auto operator<=>(const SubTableKey&) const = default;
};

/// Where an error was counted: the check, the PID and the table id, or kNoTable.
struct ErrorKey {
  Check check;
  unsigned pid;
  int table_id;
  auto operator<=>(const ErrorKey&) const = default;
};

struct ErrorCount {
  std::uint64_t count = 0;
  std::uint64_t first_packet = 0;
  std::uint64_t last_packet = 0;
  double worst = 0;
};

/// What the pass learns about a PID.
struct PidRecord {
  std::uint64_t packets = 0;
  std::uint64_t first_packet = 0;
  std::uint64_t last_packet = 0;
  std::uint64_t scrambled = 0;  // packets
  std::uint64_t first_scrambled = 0;
  std::uint64_t unit_starts = 0;
  std::vector<std::uint32_t> windows;  // packets per window
  std::vector<PcrSample> pcrs;
  std::vector<std::uint64_t> pts;  // packets with a PES header that has one
  /// Longer absences: the packets before and after.
  std::vector<std::pair<std::uint64_t, std::uint64_t>> gaps;
};

/// Looks at every packet once. What depends on time waits for evaluate().
class PacketPass : public PacketSink {
 public:
  /// A section with a right CRC, or none, that differs from the last with its
  /// identity. The handler may call read_sections() and keep_stream().
  using OnSection = std::function<void(unsigned pid, const Section& section)>;
  using Begins = std::function<bool(std::string_view payload)>;

  /// `window`: packets per window of the counts over time.
  PacketPass(std::uint64_t window, OnSection on_section);
  ~PacketPass() override;

  /// The PID carries sections.
  void read_sections(unsigned pid);
  /// Keeps `limit` bytes of the elementary stream on the PID, from the first PES
  /// packet on in whose payload it `begins`.
  void keep_stream(unsigned pid, std::size_t limit, Begins begins);

  void packet(const std::uint8_t* bytes, std::uint64_t number) override;
  void sync_byte_error(std::uint64_t number) override;
  void sync_loss(std::uint64_t number) override;
  /// After the last packet.
  void finish();

  void count(Check check, unsigned pid, std::uint64_t packet, int table_id = kNoTable,
             double worst = 0);

  [[nodiscard]] std::uint64_t window() const { return window_; }
  /// PIDs in the order in which they came.
  [[nodiscard]] const std::vector<unsigned>& pids() const { return seen_; }
  /// Good for PIDs that came.
  [[nodiscard]] const PidRecord& record(unsigned pid) const;
  [[nodiscard]] const std::string* stream(unsigned pid) const;
  [[nodiscard]] const std::map<SubTableKey, SubTable>& tables() const { return tables_; }
  [[nodiscard]] const std::map<ErrorKey, ErrorCount>& errors() const { return errors_; }
  /// Errors per window.
  [[nodiscard]] const std::vector<std::uint32_t>& error_windows(Check check) const {
    return error_windows_[static_cast<std::size_t>(check)];
  }

 private:
  struct Pid;
  Pid& state(unsigned pid);
  void first_packet(Pid* pid, unsigned number);
  void close_windows();
  bool adaptation_field(Pid* pid, const std::uint8_t* bytes);
  void continuity(Pid* pid, const std::uint8_t* bytes, bool discontinuity);
  void payload(Pid* pid, std::span<const std::uint8_t> bytes, bool unit_start);
  void pes_header(Pid* pid, std::span<const std::uint8_t> bytes);
  void keep(Pid* pid, std::span<const std::uint8_t> bytes, bool unit_start);
  void section(unsigned pid, const Section& section);

  std::uint64_t window_;
  OnSection on_section_;
  std::array<std::unique_ptr<Pid>, kPids> pids_;
  std::vector<unsigned> seen_;
  std::map<SubTableKey, SubTable> tables_;
  std::map<ErrorKey, ErrorCount> errors_;
  std::array<std::vector<std::uint32_t>, static_cast<std::size_t>(Check::data_delay) + 1>
      error_windows_;
  std::uint64_t number_ = 0;
  std::uint64_t window_end_;
  std::size_t closed_windows_ = 0;
  std::uint32_t losses_ = 0;
  std::uint64_t gap_ = 64;  // packets without a PID that are worth a note
};

}  // namespace analysis
