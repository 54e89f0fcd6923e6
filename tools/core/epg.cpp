// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/core/epg.h"

#define GST_USE_UNSTABLE_API
#include <gst/mpegts/mpegts.h>

#include <algorithm>
#include <memory>

namespace tools {
namespace {

constexpr unsigned kFirst = 0x4E;
constexpr unsigned kLast = 0x6F;
constexpr unsigned kFirstSchedule = 0x50;
constexpr unsigned kFirstScheduleOther = 0x60;
constexpr unsigned kSegment = 8;  // sections

bool is_actual(unsigned table_id) {
  return table_id == kFirst || (table_id >= kFirstSchedule && table_id < kFirstScheduleOther);
}

std::string take(gchar* text) {
  g_autofree gchar* owned = text;
  return owned != nullptr ? owned : "";
}

std::int64_t seconds_of(GstDateTime* time) {
  if (time == nullptr) return 0;
  g_autoptr(GDateTime) date = gst_date_time_to_g_date_time(time);
  return date != nullptr ? g_date_time_to_unix(date) : 0;
}

/// ARIB STD-B24 switches between character sets by codes that ETSI's character
/// sets (EN 300 468, annex A) do not have, unless a first byte names one of these.
bool is_arib(const guint8* text, std::size_t size) {
  if (size == 0 || (text[0] < 0x20 && text[0] != 0x0E && text[0] != 0x0F && text[0] != 0x1B))
    return false;
  return std::any_of(text, text + size,
                     [](guint8 byte) { return byte == 0x0E || byte == 0x0F || byte == 0x1B; });
}

/// Behind tag, length and language: the length of the name, and the name.
bool has_arib_name(const GstMpegtsDescriptor* descriptor) {
  constexpr std::size_t kName = 5;
  if (descriptor->length <= kName - 1U) return false;
  const std::size_t room = descriptor->length + 2U - kName - 1U;
  return is_arib(descriptor->data + kName + 1,
                 std::min<std::size_t>(descriptor->data[kName], room));
}

void add_short(const GstMpegtsDescriptor* descriptor, Event* event) {
  event->undecoded = has_arib_name(descriptor);
  if (event->undecoded) return;
  gchar* language = nullptr;
  gchar* title = nullptr;
  gchar* text = nullptr;
  // Where there are several languages the first one counts.
  if (!event->title.empty() ||
      !gst_mpegts_descriptor_parse_dvb_short_event(descriptor, &language, &title, &text))
    return;
  event->language = take(language);
  event->title = take(title);
  event->text = take(text);
}

void add_extended(const GstMpegtsDescriptor* descriptor, Event* event) {
  GstMpegtsExtendedEventDescriptor* extended = nullptr;
  if (event->undecoded || !gst_mpegts_descriptor_parse_dvb_extended_event(descriptor, &extended))
    return;
  if (event->language.empty() && extended->language_code != nullptr)
    event->language = extended->language_code;
  if (extended->text != nullptr &&
      (extended->language_code == nullptr || event->language == extended->language_code))
    event->extended += extended->text;
  gst_mpegts_extended_event_descriptor_free(extended);
}

Event event_of(const GstMpegtsEITEvent& from) {
  Event event;
  event.id = from.event_id;
  event.start = seconds_of(from.start_time);
  event.duration = from.duration;
  event.running_status = from.running_status;
  event.scrambled = from.free_CA_mode != FALSE;
  for (guint i = 0; from.descriptors != nullptr && i < from.descriptors->len; i++) {
    const auto* descriptor =
        static_cast<GstMpegtsDescriptor*>(g_ptr_array_index(from.descriptors, i));
    if (descriptor->tag == GST_MTS_DESC_DVB_SHORT_EVENT) add_short(descriptor, &event);
    if (descriptor->tag == GST_MTS_DESC_DVB_EXTENDED_EVENT) add_extended(descriptor, &event);
  }
  return event;
}

struct SectionUnref {
  void operator()(GstMpegtsSection* section) const { gst_mpegts_section_unref(section); }
};

void append(const std::map<unsigned, std::vector<Event>>& sections, std::vector<Event>* events) {
  for (const auto& [number, section] : sections)
    events->insert(events->end(), section.begin(), section.end());
}

std::optional<Event> first_of(const std::map<unsigned, std::vector<Event>>& sections,
                              unsigned number) {
  const auto found = sections.find(number);
  if (found == sections.end() || found->second.empty()) return std::nullopt;
  return found->second.front();
}

}  // namespace

Epg::Epg() { gst_mpegts_initialize(); }

void Epg::add(unsigned pid, std::string_view bytes) {
  const unsigned table_id = bytes.empty() ? 0 : static_cast<std::uint8_t>(bytes[0]);
  if (table_id > kLast) return atsc_.add(pid, bytes);
  if (table_id < kFirst) return;
  auto* data = static_cast<guint8*>(g_memdup2(bytes.data(), bytes.size()));
  const std::unique_ptr<GstMpegtsSection, SectionUnref> section(
      gst_mpegts_section_new(static_cast<guint16>(pid), data, bytes.size()));
  if (section == nullptr || section->current_next_indicator == FALSE) return;
  const GstMpegtsEIT* eit = gst_mpegts_section_get_eit(section.get());
  if (eit == nullptr) return;
  const TableKey key = {
      {eit->original_network_id, eit->transport_stream_id, section->subtable_extension}, table_id};
  const auto [found, added] = tables_.try_emplace(key);
  Table& table = found->second;
  if (added || table.version != section->version_number) {
    table = {};
    table.segment_last.fill(-1);
  }
  table.version = section->version_number;
  table.last_section = section->last_section_number;
  table.last_table_id = eit->last_table_id;
  table.segment_last[section->section_number / kSegment] = eit->segment_last_section_number;
  const auto [events, is_new] = table.sections.try_emplace(section->section_number);
  if (!is_new) return;
  taken_++;
  for (guint i = 0; i < eit->events->len; i++)
    events->second.push_back(
        event_of(*static_cast<GstMpegtsEITEvent*>(g_ptr_array_index(eit->events, i))));
}

unsigned Epg::missing_in(const Table& table, bool schedule) {
  if (!schedule)
    return std::max(0, static_cast<int>(table.last_section) + 1 -
                           static_cast<int>(table.sections.size()));
  unsigned missing = 0;
  for (unsigned segment = 0; segment <= table.last_section / kSegment; segment++) {
    const int last = table.segment_last[segment];
    if (last < 0) missing++;
    for (unsigned number = segment * kSegment; static_cast<int>(number) <= last; number++)
      if (!table.sections.contains(number)) missing++;
  }
  return missing;
}

/// Tables up to last_table_id of which nothing has come.
void Epg::add_missing_tables(std::map<ServiceKey, Guide>* guides) const {
  for (const auto& [key, table] : tables_) {
    if (key.table_id < kFirstSchedule) continue;
    const auto next = tables_.upper_bound(key);
    const bool last = next == tables_.end() || next->first.service != key.service ||
                      is_actual(next->first.table_id) != is_actual(key.table_id);
    const unsigned until = last ? table.last_table_id : next->first.table_id - 1;
    if (until > key.table_id) (*guides)[key.service].missing += until - key.table_id;
  }
}

std::map<ServiceKey, Guide> Epg::guides() const {
  std::map<ServiceKey, Guide> guides = atsc_.guides();
  for (const auto& [key, table] : tables_) {
    Guide& guide = guides[key.service];
    guide.actual |= is_actual(key.table_id);
    const bool schedule = key.table_id >= kFirstSchedule;
    guide.missing += missing_in(table, schedule);
    if (schedule) {
      append(table.sections, &guide.schedule);
    } else {
      guide.present = first_of(table.sections, 0);
      guide.following = first_of(table.sections, 1);
    }
  }
  add_missing_tables(&guides);
  for (auto& [key, guide] : guides)
    std::stable_sort(guide.schedule.begin(), guide.schedule.end(),
                     [](const Event& a, const Event& b) { return a.start < b.start; });
  return guides;
}

}  // namespace tools
