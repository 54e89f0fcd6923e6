// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/core/psi.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "tools/core/codecs.h"

namespace tools {
namespace {

struct Range {
  unsigned first;
  unsigned last;
  const char* name;
};

constexpr auto kTableNames = std::to_array<Range>({
    {0x00, 0x00, "PAT"},           {0x01, 0x01, "CAT"},          {0x02, 0x02, "PMT"},
    {0x3A, 0x3F, "DSM-CC"},        {0x40, 0x40, "NIT"},          {0x41, 0x41, "NIT other"},
    {0x42, 0x42, "SDT"},           {0x46, 0x46, "SDT other"},    {0x4A, 0x4A, "BAT"},
    {0x4E, 0x4E, "EIT p/f"},       {0x4F, 0x4F, "EIT p/f other"},
    {0x50, 0x5F, "EIT schedule"},  {0x60, 0x6F, "EIT schedule other"},
    {0x70, 0x70, "TDT"},           {0x71, 0x71, "RST"},          {0x72, 0x72, "ST"},
    {0x73, 0x73, "TOT"},           {0x74, 0x74, "AIT"},          {0x80, 0x81, "ECM"},
    {0x82, 0x8F, "EMM"},           {0xC7, 0xC7, "ATSC MGT"},     {0xC8, 0xC8, "ATSC TVCT"},
    {0xC9, 0xC9, "ATSC CVCT"},     {0xCB, 0xCB, "ATSC EIT"},     {0xCC, 0xCC, "ATSC ETT"},
    {0xCD, 0xCD, "ATSC STT"},
});

/// The PIDs that standards give away.
struct FixedPid {
  unsigned pid;
  const char* name;
};

constexpr auto kFixedPids = std::to_array<FixedPid>({
    {0x0000, "PAT"},
    {0x0001, "CAT"},
    {0x0002, "TSDT"},
    {0x0010, "NIT"},
    {0x0011, "SDT, BAT"},
    {0x0012, "EIT"},
    {0x0013, "RST"},
    {0x0014, "TDT, TOT"},
    {0x0015, "network synchronisation"},
    {0x001E, "DIT"},
    {0x001F, "SIT"},
    {0x1FFB, "ATSC PSIP"},
    {0x1FFF, "null packets"},
});

// ETSI EN 300 468, table 89.
constexpr auto kServiceTypes = std::to_array<Range>({
    {0x01, 0x01, "television"},    {0x02, 0x02, "radio"},        {0x03, 0x03, "teletext"},
    {0x0A, 0x0A, "radio"},         {0x0C, 0x0C, "data"},         {0x10, 0x10, "MHP"},
    {0x11, 0x11, "television HD"}, {0x16, 0x18, "television"},   {0x19, 0x1E, "television HD"},
    {0x1F, 0x1F, "television HEVC"},                             {0x20, 0x20, "television UHD"},
});

/// Service types of ATSC A/65, table 6.7, and ETSI's for the same.
constexpr std::pair<unsigned, unsigned> kChannelTypes[] = {{2, 0x01}, {3, 0x02}, {4, 0x0C}};

/// A kind of table that an MGT names, ATSC A/65, table 6.3.
struct GuideTable {
  unsigned first;
  unsigned last;
  const char* name;
  bool numbered;
};

constexpr auto kGuideTables = std::to_array<GuideTable>({
    {0x0004, 0x0004, "ATSC channel texts", false},
    {0x0100, 0x017F, "ATSC EIT-", true},
    {0x0200, 0x027F, "ATSC ETT-", true},
});

std::string guide_table_name(unsigned type) {
  for (const GuideTable& row : kGuideTables)
    if (type >= row.first && type <= row.last)
      return row.name + (row.numbered ? std::to_string(type - row.first) : "");
  return "";
}

template <std::size_t N>
std::string name_in(const std::array<Range, N>& rows, unsigned number, const char* what) {
  for (const Range& row : rows)
    if (number >= row.first && number <= row.last) return row.name;
  std::array<char, 32> text;
  std::snprintf(text.data(), text.size(), "%s 0x%02x", what, number);
  return text.data();
}

std::string text_of(gchar* text) {
  g_autofree gchar* owned = text;
  return owned != nullptr ? owned : "";
}

void add_ca(GPtrArray* descriptors, std::set<unsigned>* pids, std::set<unsigned>* systems) {
  for (guint i = 0; descriptors != nullptr && i < descriptors->len; i++) {
    auto* descriptor = static_cast<GstMpegtsDescriptor*>(g_ptr_array_index(descriptors, i));
    guint16 system = 0;
    guint16 pid = 0;
    if (descriptor->tag != GST_MTS_DESC_CA ||
        !gst_mpegts_descriptor_parse_ca(descriptor, &system, &pid, nullptr, nullptr))
      continue;
    pids->insert(pid);
    systems->insert(system);
  }
}

}  // namespace

const StreamInfo* Programme::find(std::string_view kind, std::string_view language) const {
  for (const StreamInfo& stream : streams)
    if (stream.kind == kind && stream.codec_id != 0 &&
        (language.empty() || stream.language == language))
      return &stream;
  return nullptr;
}

std::string pids_of(const Programme& programme, std::initializer_list<const StreamInfo*> streams) {
  std::string pids;
  unsigned clock = programme.pcr_pid;
  for (const StreamInfo* stream : streams) {
    if (stream == nullptr) continue;
    pids += stream->kind + ":" + std::to_string(stream->pid) + ":" +
            std::to_string(stream->codec_id) + "/";
    if (clock == Programme::kNoPid) clock = stream->pid;
  }
  return pids + "pcr:" + std::to_string(clock) + ":0";
}

struct Psi::Reader {
  using Read = void (*)(Psi*, GstMpegtsSection*);
  struct Row {
    unsigned table_id;
    Read read;
  };

  static void pat(Psi* psi, GstMpegtsSection* section) {
    g_autoptr(GPtrArray) entries = gst_mpegts_section_get_pat(section);
    if (entries == nullptr) return;
    begin_pat(psi, section);
    for (guint i = 0; i < entries->len; i++) {
      const auto* entry = static_cast<GstMpegtsPatProgram*>(g_ptr_array_index(entries, i));
      if (entry->program_number == 0) {
        psi->network_pid_ = entry->network_or_program_map_PID;
        continue;
      }
      Programme& programme = psi->programmes_[entry->program_number];
      programme.number = entry->program_number;
      programme.pmt_pid = entry->network_or_program_map_PID;
    }
  }

  /// A new version forgets which programmes there were, not what their PMTs said.
  static void begin_pat(Psi* psi, const GstMpegtsSection* section) {
    if (!psi->pat_.empty() && psi->pat_version_ != section->version_number) {
      psi->pat_.clear();
      for (auto& [number, programme] : psi->programmes_) programme.pmt_pid = Programme::kNoPid;
    }
    psi->pat_version_ = section->version_number;
    psi->pat_[section->section_number] = section->last_section_number;
    psi->transport_stream_id_ = section->subtable_extension;
  }

  static void cat(Psi* psi, GstMpegtsSection* section) {
    g_autoptr(GPtrArray) descriptors = gst_mpegts_section_get_cat(section);
    std::set<unsigned> systems;
    add_ca(descriptors, &psi->emm_pids_, &systems);
  }

  static void pmt(Psi* psi, GstMpegtsSection* section) {
    const GstMpegtsPMT* pmt = gst_mpegts_section_get_pmt(section);
    if (pmt == nullptr) return;
    const auto found = psi->programmes_.find(pmt->program_number);
    if (found == psi->programmes_.end() || found->second.pmt_pid != section->pid) return;
    Programme& programme = found->second;
    programme.has_pmt = true;
    programme.pcr_pid = pmt->pcr_pid;
    programme.streams.clear();
    programme.ca_pids.clear();
    add_ca(pmt->descriptors, &programme.ca_pids, &programme.ca_systems);
    for (guint i = 0; i < pmt->streams->len; i++) {
      const auto* entry = static_cast<GstMpegtsPMTStream*>(g_ptr_array_index(pmt->streams, i));
      StreamInfo stream = describe_stream(*entry);
      add_ca(entry->descriptors, &stream.ca_pids, &programme.ca_systems);
      programme.streams.push_back(std::move(stream));
    }
    programme.scrambled |= !programme.ca_systems.empty();
  }

  static void sdt(Psi* psi, GstMpegtsSection* section) {
    const GstMpegtsSDT* sdt = gst_mpegts_section_get_sdt(section);
    psi->has_sdt_ |= sdt != nullptr;
    for (guint i = 0; sdt != nullptr && i < sdt->services->len; i++)
      service(psi, *static_cast<GstMpegtsSDTService*>(g_ptr_array_index(sdt->services, i)));
  }

  static void service(Psi* psi, const GstMpegtsSDTService& service) {
    Programme& programme = psi->programmes_[service.service_id];
    programme.number = service.service_id;
    programme.scrambled |= service.free_CA_mode != FALSE;
    const GstMpegtsDescriptor* found =
        gst_mpegts_find_descriptor(service.descriptors, GST_MTS_DESC_DVB_SERVICE);
    GstMpegtsDVBServiceType type = GST_DVB_SERVICE_RESERVED_00;
    gchar* name = nullptr;
    gchar* provider = nullptr;
    if (found == nullptr ||
        !gst_mpegts_descriptor_parse_dvb_service(found, &type, &name, &provider))
      return;
    programme.service_type = type;
    programme.name = text_of(name);
    programme.provider = text_of(provider);
  }

  static void nit(Psi* psi, GstMpegtsSection* section) {
    const GstMpegtsNIT* nit = gst_mpegts_section_get_nit(section);
    const GstMpegtsDescriptor* found =
        nit != nullptr ? gst_mpegts_find_descriptor(nit->descriptors, GST_MTS_DESC_DVB_NETWORK_NAME)
                       : nullptr;
    gchar* name = nullptr;
    if (found != nullptr && gst_mpegts_descriptor_parse_dvb_network_name(found, &name))
      psi->network_ = text_of(name);
  }

  static void set_time(Psi* psi, GstDateTime* time) {
    if (time == nullptr) return;
    psi->time_ = text_of(gst_date_time_to_iso8601_string(time));
    gst_date_time_unref(time);
  }

  static void tdt(Psi* psi, GstMpegtsSection* section) {
    set_time(psi, gst_mpegts_section_get_tdt(section));
  }

  static void tot(Psi* psi, GstMpegtsSection* section) {
    const GstMpegtsTOT* tot = gst_mpegts_section_get_tot(section);
    if (tot != nullptr && tot->utc_time != nullptr)
      set_time(psi, gst_date_time_ref(tot->utc_time));
  }

  static void mgt(Psi* psi, GstMpegtsSection* section) {
    const GstMpegtsAtscMGT* mgt = gst_mpegts_section_get_atsc_mgt(section);
    for (guint i = 0; mgt != nullptr && i < mgt->tables->len; i++) {
      const auto* table = static_cast<GstMpegtsAtscMGTTable*>(g_ptr_array_index(mgt->tables, i));
      const std::string name = guide_table_name(table->table_type);
      if (!name.empty()) psi->guide_pids_[table->pid] = name;
    }
  }

  static void tvct(Psi* psi, GstMpegtsSection* section) {
    channels(psi, gst_mpegts_section_get_atsc_tvct(section));
  }

  static void cvct(Psi* psi, GstMpegtsSection* section) {
    channels(psi, gst_mpegts_section_get_atsc_cvct(section));
  }

  static void channels(Psi* psi, const GstMpegtsAtscVCT* vct) {
    psi->has_sdt_ |= vct != nullptr;
    for (guint i = 0; vct != nullptr && i < vct->sources->len; i++) {
      const auto* source = static_cast<GstMpegtsAtscVCTSource*>(g_ptr_array_index(vct->sources, i));
      // 0 and 0xFFFF stand for what is analogue or elsewhere.
      if (source->program_number != 0 && source->program_number != 0xFFFF) channel(psi, *source);
    }
  }

  static void channel(Psi* psi, const GstMpegtsAtscVCTSource& source) {
    Programme& programme = psi->programmes_[source.program_number];
    programme.number = source.program_number;
    programme.name = source.short_name != nullptr ? source.short_name : "";
    programme.channel = std::to_string(source.major_channel_number) + "." +
                        std::to_string(source.minor_channel_number);
    programme.scrambled |= source.access_controlled != FALSE;
    for (const auto& [atsc, dvb] : kChannelTypes)
      if (source.service_type == atsc) programme.service_type = dvb;
  }

  static void stt(Psi* psi, GstMpegtsSection* section) {
    if (const GstMpegtsAtscSTT* stt = gst_mpegts_section_get_atsc_stt(section))
      set_time(psi, gst_mpegts_atsc_stt_get_datetime_utc(const_cast<GstMpegtsAtscSTT*>(stt)));
  }

  static const std::array<Row, 11> kRows;
};

const std::array<Psi::Reader::Row, 11> Psi::Reader::kRows = {{
    {0x00, pat},
    {0x01, cat},
    {0x02, pmt},
    {0x40, nit},
    {0x42, sdt},
    {0x70, tdt},
    {0x73, tot},
    {0xC7, mgt},
    {0xC8, tvct},
    {0xC9, cvct},
    {0xCD, stt},
}};

std::string table_name(unsigned table_id) { return name_in(kTableNames, table_id, "table"); }

const char* fixed_pid_name(unsigned pid) {
  for (const FixedPid& row : kFixedPids)
    if (row.pid == pid) return row.name;
  return nullptr;
}

std::string service_type_name(unsigned service_type) {
  return name_in(kServiceTypes, service_type, "type");
}

Psi::Psi() { gst_mpegts_initialize(); }

bool Psi::has_all_programmes() const {
  if (pat_.empty() || pat_.size() <= pat_.begin()->second) return false;
  return std::all_of(programmes_.begin(), programmes_.end(), [](const auto& entry) {
    return entry.second.has_pmt || entry.second.pmt_pid == Programme::kNoPid;
  });
}

void Psi::add(unsigned pid, std::string_view bytes) {
  if (bytes.empty()) return;
  const auto row = std::find_if(
      Reader::kRows.begin(), Reader::kRows.end(),
      [&](const Reader::Row& known) { return known.table_id == static_cast<guint8>(bytes[0]); });
  if (row == Reader::kRows.end()) return;
  auto* data = static_cast<guint8*>(g_memdup2(bytes.data(), bytes.size()));
  GstMpegtsSection* section = gst_mpegts_section_new(static_cast<guint16>(pid), data, bytes.size());
  if (section == nullptr) return;
  if (section->current_next_indicator != FALSE || section->short_section) row->read(this, section);
  gst_mpegts_section_unref(section);
}

}  // namespace tools
