// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/node_manager/requests.h"

#include <qel/dmx.h>

#include <algorithm>
#include <cinttypes>
#include <cstdint>
#include <cstring>

namespace qel {
namespace {

template <typename Record>
const Record& as(const void* record) {
  static_assert(sizeof(Record) <= kMaxRecord);
  return *static_cast<const Record*>(record);
}

void append_bytes(GString* out, const char* label, const std::uint8_t (&bytes)[DMX_FILTER_SIZE]) {
  g_string_append(out, label);
  for (const std::uint8_t byte : bytes) g_string_append_printf(out, "%02x", byte);
}

void print_source(GString* out, const void* record) {
  g_string_append_printf(out, "[%" PRId32 "]", as<std::int32_t>(record));
}

void print_section_filter(GString* out, const void* record) {
  const auto& filter = as<dmx_sct_filter_params>(record);
  g_string_append_printf(out, "{pid=%u", filter.pid);
  append_bytes(out, ", filter=", filter.filter.filter);
  append_bytes(out, ", mask=", filter.filter.mask);
  append_bytes(out, ", mode=", filter.filter.mode);
  g_string_append_printf(out, ", timeout=%" PRIu32 ", flags=%" PRIu32 "}", filter.timeout,
                         filter.flags);
}

/// dmx_pes_filter_params in plain words: a caller's record holds any numbers,
/// an enumeration only its own.
struct PesFilterWords {
  std::uint16_t pid;
  std::uint32_t input, output, pes_type, flags;
};
static_assert(sizeof(PesFilterWords) == sizeof(dmx_pes_filter_params));

void print_pes_filter(GString* out, const void* record) {
  const auto& filter = as<PesFilterWords>(record);
  g_string_append_printf(out,
                         "{pid=%u, input=%" PRIu32 ", output=%" PRIu32 ", pes_type=%" PRIu32
                         ", flags=%" PRIu32 "}",
                         filter.pid, filter.input, filter.output, filter.pes_type, filter.flags);
}

void print_stc_number(GString* out, const void* record) {
  g_string_append_printf(out, "{num=%u}", as<dmx_stc>(record).num);
}

void print_stc(GString* out, const void* record) {
  const auto& stc = as<dmx_stc>(record);
  g_string_append_printf(out, "{num=%u, base=%u, stc=%" PRIu64 "}", stc.num, stc.base,
                         static_cast<std::uint64_t>(stc.stc));
}

void print_read_size(GString* out, const void* record) {
  g_string_append_printf(out, "{size=%" PRId32 "}", as<dmx_read_size>(record).size);
}

void print_device_path(GString* out, const void* record) {
  const auto& query = as<dmx_pes_type_query>(record);
  g_string_append(out, "{device_path=");
  append_quoted(out, {query.device_path, strnlen(query.device_path, DMX_PES_TYPE_PATH_SIZE)});
  g_string_append_c(out, '}');
}

void print_pes_type(GString* out, const void* record) {
  g_string_append_printf(out, "{pes_type=%" PRIu32 "}", as<dmx_pes_type_query>(record).pes_type);
}

constexpr auto kNone = ArgumentKind::kNone;
constexpr auto kNumber = ArgumentKind::kNumber;
constexpr auto kRecord = ArgumentKind::kRecord;

constexpr Request kRequests[] = {
    {KWRX_DMX_START, "KWRX_DMX_START", kNone, 0, nullptr, nullptr},
    {KWRX_DMX_STOP, "KWRX_DMX_STOP", kNone, 0, nullptr, nullptr},
    {KWRX_DMX_SET_FILTER, "KWRX_DMX_SET_FILTER", kRecord, sizeof(dmx_sct_filter_params),
     print_section_filter, nullptr},
    {KWRX_DMX_SET_PES_FILTER, "KWRX_DMX_SET_PES_FILTER", kRecord, sizeof(dmx_pes_filter_params),
     print_pes_filter, nullptr},
    {KWRX_DMX_SET_BUFFER_SIZE, "KWRX_DMX_SET_BUFFER_SIZE", kNumber, 0, nullptr, nullptr},
    {KWRX_DMX_SET_SOURCE, "KWRX_DMX_SET_SOURCE", kRecord, sizeof(std::int32_t), print_source,
     nullptr},
    {KWRX_DMX_GET_STC, "KWRX_DMX_GET_STC", kRecord, sizeof(dmx_stc), print_stc_number, print_stc},
    {KWRX_DMX_GET_READ_SIZE, "KWRX_DMX_GET_READ_SIZE", kRecord, sizeof(dmx_read_size), nullptr,
     print_read_size},
    {KWRX_DMX_GET_PESTYPE, "KWRX_DMX_GET_PESTYPE", kRecord, sizeof(dmx_pes_type_query),
     print_device_path, print_pes_type},
};

template <typename Predicate>
const Request* find_if(Predicate predicate) {
  const auto* found = std::find_if(std::begin(kRequests), std::end(kRequests), predicate);
  return found != std::end(kRequests) ? found : nullptr;
}

}  // namespace

const Request* find_request(std::uint32_t number) {
  return find_if([number](const Request& request) { return request.number == number; });
}

const Request* find_request(std::string_view name) {
  return find_if([name](const Request& request) { return request.name == name; });
}

void append_quoted(GString* out, std::string_view text) {
  g_string_append_c(out, '"');
  for (const char c : text) {
    if (c == '"' || c == '\\')
      g_string_append_printf(out, "\\%c", c);
    else if (g_ascii_isprint(c))
      g_string_append_c(out, c);
    else
      g_string_append_printf(out, "\\x%02x", static_cast<unsigned char>(c));
  }
  g_string_append_c(out, '"');
}

}  // namespace qel
