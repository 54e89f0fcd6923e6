// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "instance/section_filter.h"

namespace vantrel {

/// Result of section_check: bit 0 says that the version differs, bit 1 that the
/// CRC field differs.
enum SectionVerdict : int {
  SECTION_REJECTED = 0,  // unchanged, or broken
  SECTION_NEW_VERSION = 1,
  SECTION_NEW_CRC = 2,
  SECTION_NEW_BOTH = 3,
  SECTION_NOT_COMPARED = 4,
};

/// CRC-32/MPEG-2 register after `size` bytes (ISO/IEC 13818-1, annex A): 0 over
/// an intact long-form section, CRC_32 field included.
guint32 verify_crc(const guint8* bytes, guint32 size);

/// Judges the section in the record's buffer against the one before it on the
/// same filter; positive results are to be delivered. Updates the record's
/// memory, also for a section that then fails its CRC. Section reader only,
/// with section_lock held.
int section_check(SectionFilter* filter);

}  // namespace vantrel
