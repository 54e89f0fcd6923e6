// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/core/atsc.h"

#define GST_USE_UNSTABLE_API
#include <gst/mpegts/mpegts.h>

#include <algorithm>
#include <array>
#include <memory>
#include <set>

namespace tools {
namespace {

/// GPS time counts from 6 January 1980.
constexpr std::int64_t kGpsEpoch = 315964800;
/// The low two bits of an ETM id that belongs to an event.
constexpr std::uint32_t kEventText = 2;

struct AtscSectionUnref {
  void operator()(GstMpegtsSection* section) const { gst_mpegts_section_unref(section); }
};

std::uint32_t etm_id_of(unsigned source, unsigned event) {
  return source << 16 | event << 2 | kEventText;
}

/// The first language's text.
std::string text_of_strings(const GPtrArray* strings, std::string* language) {
  std::string text;
  if (strings == nullptr || strings->len == 0) return text;
  const auto* first = static_cast<GstMpegtsAtscMultString*>(g_ptr_array_index(strings, 0));
  if (language != nullptr) *language = first->iso_639_langcode;
  for (guint i = 0; first->segments != nullptr && i < first->segments->len; i++) {
    auto* segment = static_cast<GstMpegtsAtscStringSegment*>(g_ptr_array_index(first->segments, i));
    if (const gchar* part = gst_mpegts_atsc_string_segment_get_string(segment)) text += part;
  }
  return text;
}

Event atsc_event_of(const GstMpegtsAtscEITEvent& from) {
  Event event;
  event.id = from.event_id;
  event.start = from.start_time;
  event.duration = from.length_in_seconds;
  event.title = text_of_strings(from.titles, &event.language);
  return event;
}

}  // namespace

struct AtscGuide::Reader {
  using Read = void (*)(AtscGuide*, GstMpegtsSection*);
  struct Row {
    unsigned table_id;
    Read read;
  };

  static void take_channels(AtscGuide* guide, const GstMpegtsAtscVCT* table) {
    if (table == nullptr) return;
    guide->transport_stream_id_ = table->transport_stream_id;
    for (guint i = 0; i < table->sources->len; i++) {
      const auto* source =
          static_cast<GstMpegtsAtscVCTSource*>(g_ptr_array_index(table->sources, i));
      if (source->source_id != 0 && source->program_number != 0)
        guide->programmes_[source->source_id] = source->program_number;
    }
  }

  static void tvct(AtscGuide* guide, GstMpegtsSection* section) {
    take_channels(guide, gst_mpegts_section_get_atsc_tvct(section));
  }

  static void cvct(AtscGuide* guide, GstMpegtsSection* section) {
    take_channels(guide, gst_mpegts_section_get_atsc_cvct(section));
  }

  static void eit(AtscGuide* guide, GstMpegtsSection* section) {
    const GstMpegtsAtscEIT* table = gst_mpegts_section_get_atsc_eit(section);
    if (table == nullptr) return;
    Table& kept = guide->tables_[{table->source_id, section->pid}];
    if (kept.version != section->version_number) kept = {};
    kept.version = section->version_number;
    kept.last_section = section->last_section_number;
    const auto [events, is_new] = kept.sections.try_emplace(section->section_number);
    for (guint i = 0; is_new && i < table->events->len; i++)
      events->second.push_back(
          atsc_event_of(*static_cast<GstMpegtsAtscEITEvent*>(g_ptr_array_index(table->events, i))));
  }

  static void ett(AtscGuide* guide, GstMpegtsSection* section) {
    if (const GstMpegtsAtscETT* table = gst_mpegts_section_get_atsc_ett(section))
      guide->texts_[table->etm_id] = text_of_strings(table->messages, nullptr);
  }

  static void stt(AtscGuide* guide, GstMpegtsSection* section) {
    const GstMpegtsAtscSTT* table = gst_mpegts_section_get_atsc_stt(section);
    if (table == nullptr) return;
    guide->now_ = table->system_time;
    guide->leap_seconds_ = table->gps_utc_offset;
  }

  static const std::array<Row, 5> kRows;
};

const std::array<AtscGuide::Reader::Row, 5> AtscGuide::Reader::kRows = {{
    {0xC8, tvct},
    {0xC9, cvct},
    {0xCB, eit},
    {0xCC, ett},
    {0xCD, stt},
}};

void AtscGuide::add(unsigned pid, std::string_view bytes) {
  const unsigned table_id = bytes.empty() ? 0 : static_cast<std::uint8_t>(bytes[0]);
  const auto row =
      std::find_if(Reader::kRows.begin(), Reader::kRows.end(),
                   [&](const Reader::Row& known) { return known.table_id == table_id; });
  if (row == Reader::kRows.end()) return;
  auto* data = static_cast<guint8*>(g_memdup2(bytes.data(), bytes.size()));
  const std::unique_ptr<GstMpegtsSection, AtscSectionUnref> section(
      gst_mpegts_section_new(static_cast<guint16>(pid), data, bytes.size()));
  if (section != nullptr && section->current_next_indicator != FALSE)
    row->read(this, section.get());
}

ServiceKey AtscGuide::key_of(unsigned source) const {
  const auto found = programmes_.find(source);
  return {0, transport_stream_id_, found != programmes_.end() ? found->second : source};
}

Event AtscGuide::finished(Event event, unsigned source) const {
  if (const auto text = texts_.find(etm_id_of(source, event.id)); text != texts_.end())
    event.text = text->second;
  event.start += kGpsEpoch - leap_seconds_;
  return event;
}

/// What is on now is what the time says: ATSC has no table of it.
void AtscGuide::place(Event event, Guide* guide) const {
  if (now_) {
    const std::int64_t now = *now_ + kGpsEpoch - leap_seconds_;
    if (event.start <= now && now < event.start + event.duration) guide->present = event;
    if (event.start > now && (!guide->following || event.start < guide->following->start))
      guide->following = event;
  }
  guide->schedule.push_back(std::move(event));
}

std::map<ServiceKey, Guide> AtscGuide::guides() const {
  std::map<ServiceKey, Guide> guides;
  std::set<std::pair<unsigned, unsigned>> seen;  // source and event: two tables may have one
  for (const auto& [key, table] : tables_) {
    Guide& guide = guides[key_of(key.first)];
    guide.actual = true;
    guide.missing += table.last_section + 1 - static_cast<unsigned>(table.sections.size());
    for (const auto& [number, events] : table.sections)
      for (const Event& event : events)
        if (seen.insert({key.first, event.id}).second) place(finished(event, key.first), &guide);
  }
  return guides;
}

}  // namespace tools
