// SPDX-License-Identifier: LGPL-2.1-or-later
#include "softdec/pes_parser.h"

#include <cstring>
#include <utility>

namespace softdec {
namespace {

constexpr std::size_t kHeader = 9;  // up to PES_header_data_length
constexpr std::size_t kLengthless = 6;
constexpr std::uint8_t kStartCode[] = {0, 0, 1};

/// 0 for a packet of unbounded length. So counts one that is shorter than its own
/// header: a multiplexer has cut a length of over 16 bits.
std::size_t declared_size(const std::uint8_t* packet) {
  const std::size_t size = kLengthless + (std::size_t{packet[4]} << 8 | packet[5]);
  return size < kHeader + packet[8] ? 0 : size;
}

/// Video, audio, private_stream_1 and extended_stream_id: all that decoders get.
bool carries_elementary_stream(std::uint8_t stream_id) {
  return stream_id >= 0xC0 || stream_id == 0xBD;
}

std::uint64_t time_of(const std::uint8_t* p) {
  return (p[0] >> 1 & 7ULL) << 30 | std::uint64_t{p[1]} << 22 | (p[2] >> 1 & 0x7FULL) << 15 |
         std::uint64_t{p[3]} << 7 | p[4] >> 1;
}

}  // namespace

std::vector<PesUnit> PesParser::add(const std::uint8_t* data, std::size_t size) {
  pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(begin_));
  begin_ = 0;
  pending_.insert(pending_.end(), data, data + size);
  std::vector<PesUnit> units;
  while (step(units)) {
  }
  return units;
}

std::vector<PesUnit> PesParser::finish() {
  std::vector<PesUnit> units;
  if (size() >= kHeader && is_header(0)) {
    take(size(), units);
  } else {
    take_loose(size(), units);
  }
  reset();
  return units;
}

void PesParser::reset() {
  pending_.clear();
  begin_ = searched_ = 0;
  lost_ = true;
}

/// Elementary streams do not imitate the start code of a header, audio by
/// chance excepted: the fixed bits and the stream's own id tell that.
bool PesParser::is_header(std::size_t offset) const {
  const std::uint8_t* p = at(offset);
  return std::memcmp(p, kStartCode, sizeof kStartCode) == 0 && carries_elementary_stream(p[3]) &&
         (p[6] & 0xC0) == 0x80 && (offset == 0 || !is_header(0) || p[3] == at(0)[3]);
}

/// Moves searched_ to the next header, or as far as there is none.
bool PesParser::find_next() {
  while (searched_ + kHeader <= size()) {
    const auto* found = static_cast<const std::uint8_t*>(
        memmem(at(searched_), size() - searched_, kStartCode, sizeof kStartCode));
    if (found == nullptr) {
      searched_ = size() - sizeof kStartCode + 1;
      return false;
    }
    searched_ = static_cast<std::size_t>(found - at(0));
    if (searched_ + kHeader > size()) return false;
    if (is_header(searched_)) return true;
    ++searched_;
  }
  return false;
}

/// Some multiplexers write more than a packet's length says: what lies between it
/// and the next header goes on with the stream.
bool PesParser::skip_to_header(std::vector<PesUnit>& units) {
  searched_ = 0;
  const bool found = find_next();
  take_loose(searched_, units);
  return found;
}

void PesParser::take_loose(std::size_t length, std::vector<PesUnit>& units) {
  if (!lost_ && length > 0) {
    units.emplace_back();
    units.back().payload.assign(at(0), at(length));
  }
  begin_ += length;
  searched_ = 0;
}

/// Takes a packet; false when there is no whole one.
bool PesParser::step(std::vector<PesUnit>& units) {
  if (size() < kHeader || (!is_header(0) && !skip_to_header(units))) return false;
  if (searched_ == 0) searched_ = 1;
  const std::size_t declared = declared_size(at(0));
  const bool found = find_next();
  if (declared != 0 && declared <= size() && (!found || declared <= searched_)) {
    take(declared, units);
    return true;
  }
  if (found) take(searched_, units);
  return found;
}

void PesParser::take(std::size_t length, std::vector<PesUnit>& units) {
  const std::uint8_t* packet = at(0);
  const std::size_t header = kHeader + packet[8];
  const bool has_pts = (packet[7] & 0x80) != 0 && header >= kHeader + 5;
  const bool has_dts = (packet[7] & 0x40) != 0 && header >= kHeader + 10;
  if (header < length) {
    PesUnit unit;
    unit.payload.assign(packet + header, packet + length);
    if (has_pts) unit.pts = time_of(packet + kHeader);
    if (has_pts && has_dts) unit.dts = time_of(packet + kHeader + 5);
    unit.discont = std::exchange(lost_, false);
    units.push_back(std::move(unit));
  }
  begin_ += length;
  searched_ = 0;
}

}  // namespace softdec
