// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/core/pat_rewriter.h"

#define GST_USE_UNSTABLE_API
#include <gst/mpegts/mpegts.h>

namespace tools {
namespace {

constexpr std::size_t kHeader = 4;

std::string pat_of(const Psi& psi, const std::vector<unsigned>& numbers) {
  GPtrArray* entries = gst_mpegts_pat_new();
  for (const unsigned number : numbers) {
    GstMpegtsPatProgram* entry = gst_mpegts_pat_program_new();
    entry->program_number = static_cast<guint16>(number);
    entry->network_or_program_map_PID =
        static_cast<guint16>(psi.programmes().at(number).pmt_pid);
    g_ptr_array_add(entries, entry);
  }
  GstMpegtsSection* section =
      gst_mpegts_section_from_pat(entries, static_cast<guint16>(psi.transport_stream_id()));
  gsize size = 0;
  const auto* bytes = reinterpret_cast<const char*>(gst_mpegts_section_packetize(section, &size));
  std::string text(bytes, size);
  gst_mpegts_section_unref(section);
  return text;
}

}  // namespace

PatRewriter::PatRewriter(const Psi& psi, const std::vector<unsigned>& numbers)
    : section_(std::string(1, '\0') + pat_of(psi, numbers)) {
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
  if (analysis::packet_pid(packet) != 0) {
    out->append(reinterpret_cast<const char*>(packet), analysis::kPacketLength);
    return;
  }
  // One packet in place of those of a PAT.
  if ((packet[1] & 0x40) == 0) return;
  *out += {'\x47', '\x40', '\0', static_cast<char>(0x10 | (counter_++ & 0x0F))};
  *out += section_;
}

}  // namespace tools
