// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/core/pat_rewriter.h"

#define GST_USE_UNSTABLE_API
#include <gst/mpegts/mpegts.h>

#include <utility>

#include "tools/analysis/packet.h"

namespace tools {
namespace {

constexpr std::size_t kHeader = 4;
constexpr unsigned kPatPid = 0x00;

std::string make_pat(unsigned stream_id, unsigned version, const std::vector<unsigned>& numbers,
                     const std::vector<unsigned>& pmt_pids) {
  GPtrArray* entries = gst_mpegts_pat_new();
  for (std::size_t i = 0; i < numbers.size(); i++) {
    GstMpegtsPatProgram* entry = gst_mpegts_pat_program_new();
    entry->program_number = static_cast<guint16>(numbers[i]);
    entry->network_or_program_map_PID = static_cast<guint16>(pmt_pids[i]);
    g_ptr_array_add(entries, entry);
  }
  GstMpegtsSection* section = gst_mpegts_section_from_pat(entries, static_cast<guint16>(stream_id));
  section->version_number = static_cast<guint8>(version % 32);
  gsize size = 0;
  const auto* bytes = reinterpret_cast<const char*>(gst_mpegts_section_packetize(section, &size));
  std::string text(bytes, size);
  gst_mpegts_section_unref(section);
  return text;
}

}  // namespace

PatRewriter::PatRewriter(Psi psi, std::vector<unsigned> numbers)
    : psi_(std::move(psi)),
      numbers_(std::move(numbers)),
      pmt_pids_(numbers_.size(), Programme::kNoPid) {
  write_section();
}

/// A service that the PAT lists no more is left where it was.
void PatRewriter::write_section() {
  const std::vector<unsigned> before = pmt_pids_;
  for (std::size_t i = 0; i < numbers_.size(); i++) {
    const unsigned pid = psi_.programmes().at(numbers_[i]).pmt_pid;
    if (pid != Programme::kNoPid) pmt_pids_[i] = pid;
  }
  if (pmt_pids_ == before) return;
  section_ =
      std::string(1, '\0') + make_pat(psi_.transport_stream_id(), version_++, numbers_, pmt_pids_);
  section_.resize(analysis::kPacketLength - kHeader, '\xFF');
}

std::string PatRewriter::add(std::string_view bytes) {
  rest_.append(bytes);
  std::string out;
  out.reserve(rest_.size());
  std::size_t at = 0;
  for (; at + analysis::kPacketLength <= rest_.size(); at += analysis::kPacketLength)
    take(reinterpret_cast<const std::uint8_t*>(rest_.data()) + at, &out);
  rest_.erase(0, at);
  return out;
}

void PatRewriter::take(const std::uint8_t* packet, std::string* out) {
  if (analysis::packet_pid(packet) != kPatPid) {
    out->append(reinterpret_cast<const char*>(packet), analysis::kPacketLength);
    return;
  }
  assembler_.add(analysis::packet_payload(packet), analysis::is_unit_start(packet), 0,
                 [this](const analysis::Section& section) {
                   psi_.add(kPatPid, {reinterpret_cast<const char*>(section.bytes.data()),
                                      section.bytes.size()});
                   write_section();
                 });
  // One packet in place of those of a PAT.
  if (!analysis::is_unit_start(packet)) return;
  *out += {'\x47', '\x40', '\0', static_cast<char>(0x10 | (counter_++ & 0x0F))};
  *out += section_;
}

}  // namespace tools
