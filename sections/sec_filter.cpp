// SPDX-License-Identifier: LGPL-2.1-or-later
#include "sections/sec_filter.h"

#include <qel/log.h>

#include "common/crc32_mpeg.h"

namespace vantrel {
namespace {

constexpr const char* kTag = "tvsectioncheck";

#define CHECK_LOG(priority, format, ...)                                                         \
  do {                                                                                           \
    if (qel_log_enabled((priority), kTag))                                                       \
      qel_log_write(QEL_LOG_BUFFER_MAIN, (priority), kTag, "%s: %s(%d) > " format, "sec_filter", \
                    "section_check", __LINE__, __VA_ARGS__);                                     \
  } while (0)

/// CRC field of a section too short to have one.
constexpr guint32 kNoCrcField = 0xFFFFFFFF;
/// Version bits where they are in byte 5.
constexpr guint8 kVersionBits = 0x3E;
constexpr guint8 kSyntaxIndicator = 0x80;

guint32 section_length(const guint8* section) { return ((section[1] << 8) & 0x0F00) | section[2]; }

guint32 crc_field(const guint8* section, guint32 length) {
  if (length <= 6) return kNoCrcField;
  const guint8* field = section + length - 1;
  return static_cast<guint32>(field[0]) << 24 | field[1] << 16 | field[2] << 8 | field[3];
}

/// Compares with the section before and remembers this one.
int compare(SectionFilter* filter, guint32 crc, guint32 version) {
  int verdict = 0;
  if (version != filter->last_version) verdict |= SECTION_NEW_VERSION;
  if (crc != filter->last_crc) verdict |= SECTION_NEW_CRC;
  filter->last_version = version;
  filter->last_crc = crc;
  return verdict;
}

void log_verdict(const SectionFilter* filter, int verdict, guint32 crc, guint32 version) {
  CHECK_LOG(QEL_LOG_DEBUG, "PID[0x%x] TID[0x%x]---CRC[%s]-0x%x / VER[%s]-0x%x", filter->pid,
            filter->table_id, verdict & SECTION_NEW_CRC ? "Diff" : "SAME", crc,
            verdict & SECTION_NEW_VERSION ? "Diff" : "SAME", version);
}

}  // namespace

guint32 verify_crc(const guint8* bytes, guint32 size) { return crc32_mpeg(bytes, size); }

int section_check(SectionFilter* filter) {
  if (!filter->ver_chk && !filter->crc_chk) return SECTION_NOT_COMPARED;
  const guint8* section = filter->buf;
  const guint32 length = section_length(section);
  int verdict = SECTION_NOT_COMPARED;
  guint32 crc = 0;
  guint32 version = 0;
  if (filter->ver_chk) {
    crc = crc_field(section, length);
    version = section[5] & kVersionBits;
    verdict = compare(filter, crc, version);
  }
  const bool verify =
      verdict != SECTION_REJECTED && filter->crc_chk && (section[1] & kSyntaxIndicator) != 0;
  if (verify && verify_crc(section, length + 3) != 0) {
    CHECK_LOG(QEL_LOG_ERROR, "check section: CRC error, pid %d, table_id %d", filter->pid,
              filter->table_id);
    return SECTION_REJECTED;
  }
  log_verdict(filter, verdict, crc, version);
  return verdict;
}

}  // namespace vantrel
