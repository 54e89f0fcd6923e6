// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/analysis/packet_pass.h"

#include <algorithm>

#include "common/byte_reader.h"
#include "common/crc32_mpeg.h"

namespace analysis {
namespace {

constexpr std::uint64_t kShortestGap = 64;
constexpr unsigned kTablePids[] = {0x00, 0x01, 0x10, 0x11, 0x12, 0x13, 0x14, 0x1FFB};
/// Has a CRC without the long header that announces it.
constexpr unsigned kTimeOffsetTable = 0x73;

}  // namespace

struct PacketPass::Pid {
  PidRecord record;
  unsigned number = 0;
  std::uint32_t window = 0;  // packets in the current window
  int counter = -1;          // the last continuity counter; -1 for unknown
  bool repeated = false;     // the last packet was a duplicate
  bool signalled = false;    // discontinuity since the last PCR
  bool has_sections = false;
  SectionAssembler assembler;
  std::size_t keep = 0;  // bytes of the elementary stream
  bool keeping = false;
  Begins begins;
  bool begun = false;
  std::string stream;
};

PacketPass::PacketPass(std::uint64_t window, OnSection on_section)
    : window_(std::max<std::uint64_t>(window, 1)),
      on_section_(std::move(on_section)),
      window_end_(window_) {
  for (const unsigned pid : kTablePids) read_sections(pid);
}

PacketPass::~PacketPass() = default;

PacketPass::Pid& PacketPass::state(unsigned pid) {
  std::unique_ptr<Pid>& state = pids_[pid];
  if (state == nullptr) {
    state = std::make_unique<Pid>();
    state->number = pid;
  }
  return *state;
}

void PacketPass::read_sections(unsigned pid) { state(pid).has_sections = true; }

void PacketPass::keep_stream(unsigned pid, std::size_t limit, Begins begins) {
  state(pid).keep = limit;
  state(pid).begins = std::move(begins);
}

const PidRecord& PacketPass::record(unsigned pid) const { return pids_[pid]->record; }

const std::string* PacketPass::stream(unsigned pid) const {
  return pids_[pid] != nullptr ? &pids_[pid]->stream : nullptr;
}

void PacketPass::count(Check check, unsigned pid, std::uint64_t packet, int table_id,
                       double worst) {
  ErrorCount& error = errors_[{check, pid, table_id}];
  if (error.count++ == 0) error.first_packet = error.last_packet = packet;
  error.first_packet = std::min(error.first_packet, packet);
  error.last_packet = std::max(error.last_packet, packet);
  error.worst = std::max(error.worst, worst);
  std::vector<std::uint32_t>& windows = error_windows_[static_cast<std::size_t>(check)];
  const std::size_t window = packet / window_;
  if (windows.size() <= window) windows.resize(window + 1);
  windows[window]++;
}

void PacketPass::sync_byte_error(std::uint64_t number) { count(Check::sync_byte, kPids, number); }

void PacketPass::sync_loss(std::uint64_t number) {
  count(Check::sync_loss, kPids, number);
  losses_++;
  // What was under way ended; packets lost with sync are no continuity errors.
  for (const unsigned pid : seen_) {
    pids_[pid]->counter = -1;
    pids_[pid]->assembler.reset();
    pids_[pid]->keeping = false;
  }
}

void PacketPass::close_windows() {
  while (number_ >= window_end_) {
    for (const unsigned pid : seen_) {
      Pid& state = *pids_[pid];
      state.record.windows.resize(closed_windows_);
      state.record.windows.push_back(std::exchange(state.window, 0));
    }
    closed_windows_++;
    window_end_ += window_;
  }
}

void PacketPass::finish() {
  number_ = window_end_;
  close_windows();
}

void PacketPass::first_packet(Pid* pid, unsigned number) {
  seen_.push_back(number);
  pid->record.first_packet = pid->record.last_packet = number_;
}

void PacketPass::packet(const std::uint8_t* bytes, std::uint64_t number) {
  number_ = number;
  if (number >= window_end_) close_windows();
  const unsigned pid_number = packet_pid(bytes);
  Pid& pid = pids_[pid_number] != nullptr ? *pids_[pid_number] : state(pid_number);
  PidRecord& record = pid.record;
  if (record.packets++ == 0) first_packet(&pid, pid_number);
  pid.window++;
  if (pid_number == kNullPid) return;
  if (number - record.last_packet > gap_) record.gaps.emplace_back(record.last_packet, number);
  record.last_packet = number;
  if ((bytes[1] & 0x80) != 0) {
    count(Check::transport, pid_number, number);
    pid.counter = -1;
    pid.assembler.reset();
    return;
  }
  if (is_scrambled(bytes) && record.scrambled++ == 0) record.first_scrambled = number;
  const bool discontinuity = (bytes[3] & 0x20) != 0 && adaptation_field(&pid, bytes);
  continuity(&pid, bytes, discontinuity);
}

/// Whether it has discontinuity_indicator set.
bool PacketPass::adaptation_field(Pid* pid, const std::uint8_t* bytes) {
  if (bytes[4] == 0) return false;
  const bool discontinuity = (bytes[5] & 0x80) != 0;
  pid->signalled |= discontinuity;
  const auto pcr = packet_pcr(bytes);
  if (!pcr) return discontinuity;
  std::vector<PcrSample>& pcrs = pid->record.pcrs;
  if (!pcrs.empty())
    gap_ = std::max(kShortestGap, std::min(gap_ * 2, 2 * (number_ - pcrs.back().packet)));
  pcrs.push_back({number_, *pcr, losses_, std::exchange(pid->signalled, false)});
  return discontinuity;
}

/// The counter, then the payload of packets that are not sent twice.
void PacketPass::continuity(Pid* pid, const std::uint8_t* bytes, bool discontinuity) {
  const bool has_payload = (bytes[3] & 0x10) != 0;
  const int counter = bytes[3] & 0x0F;
  const int last = std::exchange(pid->counter, counter);
  const bool known = last >= 0 && !discontinuity;
  const bool duplicate = known && has_payload && counter == last && !pid->repeated;
  const int expected = has_payload && !duplicate ? (last + 1) & 0x0F : last;
  const bool right = !known || counter == expected;
  pid->repeated = duplicate;
  if (!right) count(Check::continuity, pid->number, number_);
  if (!right || discontinuity) pid->assembler.reset();
  if (!has_payload || duplicate) return;
  const std::span<const std::uint8_t> rest = packet_payload(bytes);
  if (!rest.empty() && !is_scrambled(bytes)) payload(pid, rest, is_unit_start(bytes));
}

void PacketPass::payload(Pid* pid, std::span<const std::uint8_t> bytes, bool unit_start) {
  if (unit_start) pid->record.unit_starts++;
  if (pid->has_sections) {
    pid->assembler.add(bytes, unit_start, number_,
                       [&](const Section& complete) { section(pid->number, complete); });
    return;
  }
  if (unit_start) pes_header(pid, bytes);
  if (pid->stream.size() < pid->keep) keep(pid, bytes, unit_start);
}

void PacketPass::pes_header(Pid* pid, std::span<const std::uint8_t> bytes) {
  constexpr std::size_t kUpToPts = 14;
  const bool is_pes = bytes.size() >= kUpToPts && vantrel::read_u24(bytes.data()) == 1;
  if (is_pes && (bytes[6] & 0xC0) == 0x80 && (bytes[7] & 0x80) != 0)
    pid->record.pts.push_back(number_);
}

void PacketPass::keep(Pid* pid, std::span<const std::uint8_t> bytes, bool unit_start) {
  constexpr std::size_t kFixedHeader = 9;
  std::size_t skip = 0;
  if (unit_start) {
    // The last unit is whole.
    if (!pid->begun) pid->begun = pid->begins(pid->stream);
    if (!pid->begun) pid->stream.clear();
    pid->keeping = bytes.size() > kFixedHeader && vantrel::read_u24(bytes.data()) == 1;
    skip = pid->keeping ? kFixedHeader + bytes[8] : 0;
  }
  if (!pid->keeping || skip >= bytes.size()) return;
  pid->stream.append(reinterpret_cast<const char*>(bytes.data()) + skip, bytes.size() - skip);
}

void PacketPass::section(unsigned pid, const Section& section) {
  constexpr std::size_t kShortestLong = 12;
  const std::span<const std::uint8_t> bytes = section.bytes;
  const unsigned table_id = bytes[0];
  const bool is_long = (bytes[1] & 0x80) != 0;
  const bool has_crc = is_long || table_id == kTimeOffsetTable;
  if ((is_long && bytes.size() < kShortestLong) ||
      (has_crc && vantrel::crc32_mpeg(bytes.data(), bytes.size()) != 0))
    return count(Check::crc, pid, number_, static_cast<int>(table_id));
  if (const CheckInfo* check = intruder(pid, table_id))
    return count(check->check, pid, number_, static_cast<int>(table_id));
  const unsigned extension = is_long ? vantrel::read_u16(bytes.data() + 3) : 0;
  const std::uint8_t number = is_long ? bytes[6] : 0;
  SubTable& table = tables_[{pid, table_id, extension}];
  table.sections.push_back({section.first_packet, section.last_packet, number});
  table.bytes += bytes.size();
  if (has_crc) {
    const std::uint32_t checksum = vantrel::read_u32(bytes.data() + bytes.size() - 4);
    const auto [known, added] = table.checksums.try_emplace(number, checksum);
    if (!added && std::exchange(known->second, checksum) == checksum) return;
  }
  if (on_section_) on_section_(pid, section);
}

}  // namespace analysis
