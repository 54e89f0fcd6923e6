// SPDX-License-Identifier: LGPL-2.1-or-later
#include "vantrel/receiver.h"

#include <linux/dvb/dmx.h>

#include <array>

#include "client/core.h"
#include "client/filter_private.h"
#include "client/receiver_private.h"
#include "client/temi.h"
#include "vantrel/error.h"

using vantrel::client::Core;
using vantrel::client::Kind;

struct _VantrelReceiver {
  GObject parent;

  // Set when it is constructed.
  GstElement* element;
  GMainContext* context;
  std::shared_ptr<Core> core;
  std::array<gulong, 3> handlers;
};

G_DEFINE_QUARK(vantrel-error-quark, vantrel_error)

G_DEFINE_ENUM_TYPE(VantrelError, vantrel_error,
                   G_DEFINE_ENUM_VALUE(VANTREL_ERROR_FOREIGN, "foreign"),
                   G_DEFINE_ENUM_VALUE(VANTREL_ERROR_INVALID, "invalid"),
                   G_DEFINE_ENUM_VALUE(VANTREL_ERROR_BUSY, "busy"),
                   G_DEFINE_ENUM_VALUE(VANTREL_ERROR_REFUSED, "refused"))

namespace {

/// Bytes that wait for a context at most, unless told otherwise.
constexpr guint64 kMaxPending = 16 * 1024 * 1024;

enum Property { kElement = 1, kContext, kMaxPendingProperty, kPropertyCount };

guint pes_signal = 0;
guint temi_signal = 0;

Core& core_of(gpointer closure_data) { return **static_cast<std::shared_ptr<Core>*>(closure_data); }

void on_section(GstElement*, guint pid, guint, gpointer section, guint size, gpointer handle,
                gpointer core) {
  core_of(core).arrived(Kind::kSection, pid, handle, section, size);
}

void on_pes(GstElement*, guint pid, gpointer pes, guint size, gpointer core) {
  core_of(core).arrived(Kind::kPes, pid, nullptr, pes, size);
}

void on_temi(GstElement*, guint size, gpointer data, gpointer core) {
  core_of(core).arrived(Kind::kTemi, 0, nullptr, data, size);
}

/// The closure owns a share of the core, as it may run when the receiver is gone.
gulong connect(VantrelReceiver* self, const char* signal, GCallback callback) {
  return g_signal_connect_data(
      self->element, signal, callback, new std::shared_ptr<Core>(self->core),
      [](gpointer core, GClosure*) { delete static_cast<std::shared_ptr<Core>*>(core); },
      G_CONNECT_DEFAULT);
}

bool is_vantrel(GstElement* element) {
  const GType type = g_type_from_name("Gstvantrel");
  return type != 0 && g_type_is_a(G_OBJECT_TYPE(element), type);
}

/// Frees a claim on a filter that does not run (any more).
void let_go(VantrelReceiver* self, VantrelSectionFilter* filter) {
  g_atomic_pointer_set(&filter->receiver, nullptr);
  g_object_unref(self);
}

bool claim(VantrelReceiver* self, VantrelSectionFilter* filter) {
  g_object_ref(self);
  if (g_atomic_pointer_compare_and_exchange(&filter->receiver, nullptr, self)) return true;
  g_object_unref(self);
  return false;
}

gboolean fail(GError** error, VantrelError code, const char* message) {
  g_set_error_literal(error, VANTREL_ERROR, code, message);
  return FALSE;
}

}  // namespace

G_DEFINE_FINAL_TYPE(VantrelReceiver, vantrel_receiver, G_TYPE_OBJECT)

static void vantrel_receiver_init(VantrelReceiver* self) { new (&self->core) std::shared_ptr<Core>; }

static void constructed(GObject* object) {
  auto* self = VANTREL_RECEIVER(object);
  G_OBJECT_CLASS(vantrel_receiver_parent_class)->constructed(object);
  self->core = std::make_shared<Core>(self, self->context);
  self->core->set_max_pending(kMaxPending);
  if (self->element == nullptr || !is_vantrel(self->element)) return;
  self->handlers = {connect(self, "section-upload", G_CALLBACK(on_section)),
                    connect(self, "pes-upload", G_CALLBACK(on_pes)),
                    connect(self, "temi-data", G_CALLBACK(on_temi))};
}

static void dispose(GObject* object) {
  auto* self = VANTREL_RECEIVER(object);
  self->core->leave();
  for (gulong& handler : self->handlers) g_clear_signal_handler(&handler, self->element);
  G_OBJECT_CLASS(vantrel_receiver_parent_class)->dispose(object);
}

static void finalize(GObject* object) {
  auto* self = VANTREL_RECEIVER(object);
  self->core.~shared_ptr();
  g_clear_pointer(&self->context, g_main_context_unref);
  g_clear_object(&self->element);
  G_OBJECT_CLASS(vantrel_receiver_parent_class)->finalize(object);
}

static void set_property(GObject* object, guint id, const GValue* value, GParamSpec*) {
  auto* self = VANTREL_RECEIVER(object);
  if (id == kElement)
    self->element = GST_ELEMENT(g_value_dup_object(value));
  else if (id == kContext)
    self->context = static_cast<GMainContext*>(g_value_dup_boxed(value));
  else
    self->core->set_max_pending(g_value_get_uint64(value));
}

static void get_property(GObject* object, guint id, GValue* value, GParamSpec*) {
  auto* self = VANTREL_RECEIVER(object);
  if (id == kElement)
    g_value_set_object(value, self->element);
  else if (id == kContext)
    g_value_set_boxed(value, self->context);
  else
    g_value_set_uint64(value, self->core->max_pending());
}

static void install_properties(GObjectClass* klass) {
  constexpr auto once = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_CONSTRUCT_ONLY |
                                                 G_PARAM_STATIC_STRINGS);
  constexpr auto always = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS);
  GParamSpec* specs[kPropertyCount] = {
      nullptr,
      g_param_spec_object("element", nullptr, "The element", GST_TYPE_ELEMENT, once),
      g_param_spec_boxed("context", nullptr, "Where signals are emitted; none: where data is read",
                         G_TYPE_MAIN_CONTEXT, once),
      g_param_spec_uint64("max-pending", nullptr,
                          "Bytes that wait for the context at most; what comes then is dropped", 0,
                          G_MAXUINT64, kMaxPending, always),
  };
  g_object_class_install_properties(klass, kPropertyCount, specs);
}

static void create_signals() {
  /**
   * VantrelReceiver::pes:
   * @self: the receiver
   * @pid: PID of a subtitle or teletext stream
   * @pes: a whole PES packet (ISO/IEC 13818-1, 2.4.3.6)
   *
   * A PES packet of a stream that "sub-pid", "isdb-pid", "ttx-pid" or "super-pid"
   * of the element names.
   */
  pes_signal = g_signal_new("pes", VANTREL_TYPE_RECEIVER, G_SIGNAL_RUN_LAST, 0, nullptr, nullptr,
                            nullptr, G_TYPE_NONE, 2, G_TYPE_UINT, G_TYPE_BYTES);
  /**
   * VantrelReceiver::temi:
   * @self: the receiver
   * @data: TEMI descriptors (ISO/IEC 13818-1, Annex U), one behind the other
   *
   * Descriptors of an external time line, after vantrel_receiver_set_temi().
   */
  temi_signal =
      g_signal_new("temi", VANTREL_TYPE_RECEIVER, G_SIGNAL_RUN_LAST, 0, nullptr, nullptr,
                   g_cclosure_marshal_VOID__BOXED, G_TYPE_NONE, 1, G_TYPE_BYTES);
}

static void vantrel_receiver_class_init(VantrelReceiverClass* klass) {
  GObjectClass* object_class = G_OBJECT_CLASS(klass);
  object_class->constructed = constructed;
  object_class->dispose = dispose;
  object_class->finalize = finalize;
  object_class->set_property = set_property;
  object_class->get_property = get_property;
  install_properties(object_class);
  create_signals();
}

VantrelReceiver* vantrel_receiver_new(GstElement* element, GMainContext* context, GError** error) {
  g_return_val_if_fail(GST_IS_ELEMENT(element), nullptr);
  if (!is_vantrel(element)) {
    g_set_error(error, VANTREL_ERROR, VANTREL_ERROR_FOREIGN, "%s is a %s, not a vantrel element",
                GST_OBJECT_NAME(element), G_OBJECT_TYPE_NAME(element));
    return nullptr;
  }
  return VANTREL_RECEIVER(
      g_object_new(VANTREL_TYPE_RECEIVER, "element", element, "context", context, nullptr));
}

GstElement* vantrel_receiver_get_element(VantrelReceiver* self) {
  g_return_val_if_fail(VANTREL_IS_RECEIVER(self), nullptr);
  return self->element;
}

gboolean vantrel_receiver_add_filter(VantrelReceiver* self, VantrelSectionFilter* filter,
                                     GError** error) {
  g_return_val_if_fail(VANTREL_IS_RECEIVER(self) && VANTREL_IS_SECTION_FILTER(filter), FALSE);
  if (self->handlers[0] == 0)
    return fail(error, VANTREL_ERROR_FOREIGN, "the receiver has no vantrel element");
  if (!filter->is_valid)
    return fail(error, VANTREL_ERROR_INVALID,
                "pattern, mask and mode must have the same size, 1 to 15 bytes");
  if (!claim(self, filter)) return fail(error, VANTREL_ERROR_BUSY, "the filter runs already");
  if (self->core->add(self->element, filter)) return TRUE;
  let_go(self, filter);
  return fail(error, VANTREL_ERROR_REFUSED, "the element has no node for the filter; see its log");
}

gboolean vantrel_receiver_remove_filter(VantrelReceiver* self, VantrelSectionFilter* filter,
                                        GError** error) {
  g_return_val_if_fail(VANTREL_IS_RECEIVER(self) && VANTREL_IS_SECTION_FILTER(filter), FALSE);
  if (!self->core->remove(self->element, filter))
    return fail(error, VANTREL_ERROR_FOREIGN, "the filter does not run on this receiver");
  let_go(self, filter);
  return TRUE;
}

gboolean vantrel_receiver_set_temi(VantrelReceiver* self, gboolean enabled, GError** error) {
  g_return_val_if_fail(VANTREL_IS_RECEIVER(self), FALSE);
  if (self->handlers[0] == 0)
    return fail(error, VANTREL_ERROR_FOREIGN, "the receiver has no vantrel element");
  return vantrel::client::set_temi(self->element, enabled, error);
}

gboolean vantrel_receiver_read_stc(VantrelReceiver* self, guint64* stc) {
  g_return_val_if_fail(VANTREL_IS_RECEIVER(self) && stc != nullptr, FALSE);
  struct dmx_stc* record = nullptr;
  *stc = 0;
  if (self->handlers[0] != 0) g_object_get(self->element, "dmx-stc", &record, nullptr);
  if (record == nullptr || record->base == 0) return FALSE;
  // Units of 27 MHz, whatever the driver's divisor to 90 kHz is.
  *stc = record->stc * 300 / record->base;
  return TRUE;
}

guint64 vantrel_receiver_get_dropped(VantrelReceiver* self) {
  g_return_val_if_fail(VANTREL_IS_RECEIVER(self), 0);
  return self->core->dropped();
}

void vantrel::client::emit_pes(VantrelReceiver* self, guint pid, GBytes* pes) {
  g_signal_emit(self, pes_signal, 0, pid, pes);
}

void vantrel::client::emit_temi(VantrelReceiver* self, GBytes* data) {
  g_signal_emit(self, temi_signal, 0, data);
}
