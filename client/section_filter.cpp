// SPDX-License-Identifier: LGPL-2.1-or-later
#include "vantrel/section_filter.h"

#include <algorithm>

#include "client/filter_private.h"
#include "vantrel/receiver.h"

using vantrel::client::Pattern;

namespace {

constexpr guint kMaxPid = 0x1fff;
constexpr guint8 kAllBits = 0xff;
/// Where a section has its table id extension.
constexpr gsize kExtensionAt = 3;

enum Property {
  kPid = 1,
  kTableId,
  kTableIdExt,
  kFlags,
  kPattern,
  kMask,
  kMode,
  kPropertyCount,
};

guint section_signal = 0;

bool copy(GBytes* bytes, gsize size, std::array<guint8, vantrel::client::kMaxPattern>* out) {
  gsize length = 0;
  const auto* data = static_cast<const guint8*>(g_bytes_get_data(bytes, &length));
  if (length != size) return false;
  std::copy_n(data, length, out->begin());
  return true;
}

/// False for patterns of different sizes, or too long.
bool pattern_of_bytes(const VantrelSectionFilter* self, Pattern* out) {
  if (self->mask_bytes == nullptr) return false;
  const gsize size = g_bytes_get_size(self->pattern_bytes);
  if (size == 0 || size > out->match.size()) return false;
  out->size = static_cast<guint>(size);
  return copy(self->pattern_bytes, size, &out->match) && copy(self->mask_bytes, size, &out->mask) &&
         (self->mode_bytes == nullptr || copy(self->mode_bytes, size, &out->mode));
}

/// The element takes extension 0 for any, and complains of other table ids than
/// the one it was given: both are said by a pattern.
void pattern_of_ids(const VantrelSectionFilter* self, Pattern* out) {
  if (self->table_id >= 0 && self->table_id_ext < 0) return;
  out->size = 1;
  if (self->table_id >= 0) {
    out->match[0] = static_cast<guint8>(self->table_id);
    out->mask[0] = kAllBits;
  }
  if (self->table_id_ext < 0) return;
  out->size = kExtensionAt + 2;
  out->match[kExtensionAt] = static_cast<guint8>(self->table_id_ext >> 8);
  out->match[kExtensionAt + 1] = static_cast<guint8>(self->table_id_ext);
  out->mask[kExtensionAt] = out->mask[kExtensionAt + 1] = kAllBits;
}

GBytes** bytes_field(VantrelSectionFilter* self, guint id) {
  return id == kPattern ? &self->pattern_bytes : id == kMask ? &self->mask_bytes : &self->mode_bytes;
}

}  // namespace

G_DEFINE_FLAGS_TYPE(VantrelFilterFlags, vantrel_filter_flags,
                    G_DEFINE_ENUM_VALUE(VANTREL_FILTER_FLAGS_NONE, "none"),
                    G_DEFINE_ENUM_VALUE(VANTREL_FILTER_FLAGS_CHANGED_ONLY, "changed-only"),
                    G_DEFINE_ENUM_VALUE(VANTREL_FILTER_FLAGS_CHECK_CRC, "check-crc"))

G_DEFINE_FINAL_TYPE(VantrelSectionFilter, vantrel_section_filter, G_TYPE_OBJECT)

static void vantrel_section_filter_init(VantrelSectionFilter* self) { new (&self->pattern) Pattern; }

static void constructed(GObject* object) {
  auto* self = VANTREL_SECTION_FILTER(object);
  G_OBJECT_CLASS(vantrel_section_filter_parent_class)->constructed(object);
  self->is_valid = TRUE;
  if (self->pattern_bytes != nullptr)
    self->is_valid = pattern_of_bytes(self, &self->pattern);
  else
    pattern_of_ids(self, &self->pattern);
}

static void dispose(GObject* object) {
  auto* self = VANTREL_SECTION_FILTER(object);
  auto* receiver = static_cast<VantrelReceiver*>(g_atomic_pointer_get(&self->receiver));
  if (receiver != nullptr) vantrel_receiver_remove_filter(receiver, self, nullptr);
  G_OBJECT_CLASS(vantrel_section_filter_parent_class)->dispose(object);
}

static void finalize(GObject* object) {
  auto* self = VANTREL_SECTION_FILTER(object);
  for (const guint id : {kPattern, kMask, kMode}) g_clear_pointer(bytes_field(self, id), g_bytes_unref);
  G_OBJECT_CLASS(vantrel_section_filter_parent_class)->finalize(object);
}

static void set_property(GObject* object, guint id, const GValue* value, GParamSpec*) {
  auto* self = VANTREL_SECTION_FILTER(object);
  if (id == kPid)
    self->pid = g_value_get_uint(value);
  else if (id == kTableId)
    self->table_id = g_value_get_int(value);
  else if (id == kTableIdExt)
    self->table_id_ext = g_value_get_int(value);
  else if (id == kFlags)
    self->flags = g_value_get_flags(value);
  else
    *bytes_field(self, id) = static_cast<GBytes*>(g_value_dup_boxed(value));
}

static void get_property(GObject* object, guint id, GValue* value, GParamSpec*) {
  auto* self = VANTREL_SECTION_FILTER(object);
  if (id == kPid)
    g_value_set_uint(value, self->pid);
  else if (id == kTableId)
    g_value_set_int(value, self->table_id);
  else if (id == kTableIdExt)
    g_value_set_int(value, self->table_id_ext);
  else if (id == kFlags)
    g_value_set_flags(value, self->flags);
  else
    g_value_set_boxed(value, *bytes_field(self, id));
}

static void install_properties(GObjectClass* klass) {
  constexpr auto flags = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_CONSTRUCT_ONLY |
                                                  G_PARAM_STATIC_STRINGS);
  const auto bytes = [](const char* name, const char* blurb) {
    return g_param_spec_boxed(name, nullptr, blurb, G_TYPE_BYTES, flags);
  };
  GParamSpec* specs[kPropertyCount] = {
      nullptr,
      g_param_spec_uint("pid", nullptr, "PID", 0, kMaxPid, 0, flags),
      g_param_spec_int("table-id", nullptr, "Table id; -1 for any", -1, 0xff, -1, flags),
      g_param_spec_int("table-id-ext", nullptr, "Table id extension; -1 for any", -1, 0xffff, -1,
                       flags),
      g_param_spec_flags("flags", nullptr, "Which sections to deliver", VANTREL_TYPE_FILTER_FLAGS,
                         VANTREL_FILTER_FLAGS_NONE, flags),
      bytes("pattern", "Bytes to match, 1 to 15, instead of the table ids"),
      bytes("mask", "Bits of the pattern that count"),
      bytes("mode", "Bits of the pattern of which one must differ"),
  };
  g_object_class_install_properties(klass, kPropertyCount, specs);
}

static void vantrel_section_filter_class_init(VantrelSectionFilterClass* klass) {
  GObjectClass* object_class = G_OBJECT_CLASS(klass);
  object_class->constructed = constructed;
  object_class->dispose = dispose;
  object_class->finalize = finalize;
  object_class->set_property = set_property;
  object_class->get_property = get_property;
  install_properties(object_class);
  /**
   * VantrelSectionFilter::section:
   * @self: the filter
   * @section: the section, header and CRC_32 included; 4 to 4096 bytes
   *
   * A section that matched. See #VantrelReceiver for the thread.
   */
  section_signal =
      g_signal_new("section", VANTREL_TYPE_SECTION_FILTER, G_SIGNAL_RUN_LAST, 0, nullptr, nullptr,
                   g_cclosure_marshal_VOID__BOXED, G_TYPE_NONE, 1, G_TYPE_BYTES);
}

VantrelSectionFilter* vantrel_section_filter_new(guint pid, gint table_id, gint table_id_ext,
                                                 VantrelFilterFlags flags) {
  return VANTREL_SECTION_FILTER(g_object_new(VANTREL_TYPE_SECTION_FILTER, "pid", pid, "table-id",
                                             table_id, "table-id-ext", table_id_ext, "flags", flags,
                                             nullptr));
}

VantrelSectionFilter* vantrel_section_filter_new_pattern(guint pid, GBytes* pattern, GBytes* mask,
                                                         GBytes* mode, VantrelFilterFlags flags) {
  return VANTREL_SECTION_FILTER(g_object_new(VANTREL_TYPE_SECTION_FILTER, "pid", pid, "pattern",
                                             pattern, "mask", mask, "mode", mode, "flags", flags,
                                             nullptr));
}

guint vantrel_section_filter_get_pid(VantrelSectionFilter* self) {
  g_return_val_if_fail(VANTREL_IS_SECTION_FILTER(self), 0);
  return self->pid;
}

gboolean vantrel_section_filter_is_added(VantrelSectionFilter* self) {
  g_return_val_if_fail(VANTREL_IS_SECTION_FILTER(self), FALSE);
  return g_atomic_pointer_get(&self->receiver) != nullptr;
}

void vantrel::client::emit_section(VantrelSectionFilter* self, GBytes* section) {
  g_signal_emit(self, section_signal, 0, section);
}
