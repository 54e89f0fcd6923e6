// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <glib.h>

#include <cstddef>

/// Bytes a read of a section node may return.
constexpr guint kSectionBufferSize = 131072;
/// Filters that run at a time; further ones wait.
constexpr guint kMaxRunningSections = 96;

/// Link of a circular doubly linked list; a record on no list, and the head of
/// an empty list, link to themselves.
struct SectionLink {
  SectionLink* next = this;
  SectionLink* prev = this;

  SectionLink() = default;
  SectionLink(const SectionLink&) = delete;
  SectionLink& operator=(const SectionLink&) = delete;

  [[nodiscard]] bool empty() const { return next == this; }
  void unlink() {
    next->prev = prev;
    prev->next = next;
    next = prev = this;
  }
  void insert_after(SectionLink& where) {
    next = where.next;
    prev = &where;
    where.next->prev = this;
    where.next = this;
  }
};

/// One section filter; its address is the handle that applications hold.
///
/// Guarded by the element's section_lock, except that buf belongs to the
/// emission while `emitting` is set. Records live on zero pages, so that the
/// buffer costs memory only once sections arrive.
struct SectionFilter : SectionLink {
  /// Logical node name; NULL when the demux id has none.
  const gchar* device = nullptr;
  /// Descriptor of the node; -1 while it waits and after removal.
  gint fd = -1;
  guint pid = 0;
  /// Above 255: not matched. Replaced by the first byte of a pattern.
  guint table_id = 0;
  /// 0 or above 65535: not matched.
  guint table_id_ex = 0;
  // Patterns in section-header positions, borrowed from the caller.
  const guint8* mask = nullptr;
  const guint8* filter = nullptr;
  const guint8* mode = nullptr;
  /// Bytes in each pattern; 0 selects the plain table-id filter.
  guint filter_len = 0;
  /// The section read last. The pages are zero until then.
  guint8 buf[kSectionBufferSize];
  gboolean ver_chk = FALSE;
  gboolean crc_chk = FALSE;
  /// Memory of the section check: masked version byte and CRC field.
  guint last_version = 0;
  guint last_crc = 0;
  /// The first delivery on PID 0 has been logged.
  gboolean pat_emitted = FALSE;

  // Bookkeeping of the emission that runs without section_lock.

  /// A "section-upload" emission with this record runs.
  bool emitting = false;
  /// Removed by its own handler: the section reader frees it afterwards.
  bool orphaned = false;

  // buf is left alone on purpose: its pages are zero already.
  SectionFilter() {}
};

/// The record whose "section-upload" the calling thread emits; NULL elsewhere.
inline thread_local const SectionFilter* emitted_section_filter = nullptr;

// Not a standard-layout type by the letter, but no compiler places the members
// of a plain derived record any other way.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
/// Where the buffer lies in a record, for handles that may not be looked into.
constexpr std::size_t kSectionBufferOffset = offsetof(SectionFilter, buf);
#pragma GCC diagnostic pop
