// SPDX-License-Identifier: LGPL-2.1-or-later
#include "plugin/signals.h"

#include <array>

#include "instance/instance.h"
#include "plugin/marshallers.h"

guint gst_vantrel_signals[N_VANTREL_SIGNALS];

namespace {

constexpr guint kMaxParams = 9;

struct SignalRow {
  const char* name;
  guint flags;
  guint closure_offset;
  GSignalCMarshaller marshaller;
  GSignalCVaMarshaller va_marshaller;
  GType return_type;
  guint n_params;
  std::array<GType, kMaxParams> params;
};

constexpr guint kEmitted = G_SIGNAL_RUN_LAST;
constexpr guint kAction = G_SIGNAL_RUN_LAST | G_SIGNAL_ACTION;

/**
 * Gstvantrel::section-upload:
 * @vantrel: the element
 * @pid: the filter's PID
 * @table_id: the filter's table id, configured or the pattern's first byte
 * @section: (type gpointer): the section's bytes, valid during the emission
 * @size: their number, 4 to 4096
 * @filter: (type gpointer): the handle that "add-filter" returned
 *
 * A section that passed its filter's checks. Emitted on the section reader's
 * thread with no lock held: handlers may add and remove filters, this one too,
 * and write PIDs; they must not ask for a downward state change (see
 * gst_element_call_async()).
 *
 * Gstvantrel::pes-upload:
 * @vantrel: the element
 * @pid: the stream's PID
 * @pes: (type gpointer): one PES packet, valid during the emission
 * @size: its bytes
 *
 * A PES packet of a subtitle or teletext stream. Emitted on the PES reader's
 * thread with no lock held; what holds for "section-upload" holds here.
 *
 * Gstvantrel::add-filter:
 * @vantrel: the element
 * @pid: PID; 16 bits count
 * @table_id: table id; above 255 for any
 * @table_id_ex: table id extension; 0 or above 65535 for any
 * @mask: (nullable): mask bytes
 * @filter: (nullable): bytes to match
 * @filter_len: bytes in @mask, @filter and @mode, at most 15; 0 to match by
 *   table id
 * @check_version: deliver changed sections only
 * @check_crc: deliver sections with a good CRC_32 only
 * @mode: (nullable): mode bytes; bits set there must differ
 *
 * Opens a section filter. The arrays are in section-header positions, stay the
 * caller's and must live as long as the filter. At most 96 filters run; further
 * ones wait for a place. Any thread.
 *
 * Returns: (type gpointer): the filter's handle, or %NULL when it cannot be had
 *
 * Gstvantrel::remove-filter:
 * @vantrel: the element
 * @filter: (type gpointer): the handle
 *
 * Closes a section filter. Afterwards its handler is not called again, and does
 * not run, unless the caller is that handler, or a handler of pad-added,
 * pad-removed or an event of the element's pads. Other handles are ignored. Any
 * thread.
 *
 * Gstvantrel::temi-data:
 * @vantrel: the element
 * @size: number of bytes
 * @data: (type gpointer): TEMI descriptors, valid during the emission
 *
 * AF descriptors as they come in the stream, one behind the other. Emitted on
 * the TEMI reader's thread with no lock held.
 */
const auto kSignals = std::to_array<SignalRow>({
    {"section-upload",
     kEmitted,
     offsetof(GstVantrelClass, section_upload),
     gst_vantrel_marshal_VOID__UINT_UINT_POINTER_UINT_POINTER,
     gst_vantrel_marshal_VOID__UINT_UINT_POINTER_UINT_POINTERv,
     G_TYPE_NONE,
     5,
     {G_TYPE_UINT, G_TYPE_UINT, G_TYPE_POINTER, G_TYPE_UINT, G_TYPE_POINTER}},
    {"pes-upload",
     kEmitted,
     offsetof(GstVantrelClass, pes_upload),
     gst_vantrel_marshal_VOID__UINT_POINTER_UINT,
     gst_vantrel_marshal_VOID__UINT_POINTER_UINTv,
     G_TYPE_NONE,
     3,
     {G_TYPE_UINT, G_TYPE_POINTER, G_TYPE_UINT}},
    {"add-filter",
     kAction,
     offsetof(GstVantrelClass, add_filter),
     gst_vantrel_marshal_POINTER__UINT_UINT_UINT_POINTER_POINTER_UINT_BOOLEAN_BOOLEAN_POINTER,
     gst_vantrel_marshal_POINTER__UINT_UINT_UINT_POINTER_POINTER_UINT_BOOLEAN_BOOLEAN_POINTERv,
     G_TYPE_POINTER,
     9,
     {G_TYPE_UINT, G_TYPE_UINT, G_TYPE_UINT, G_TYPE_POINTER, G_TYPE_POINTER, G_TYPE_UINT,
      G_TYPE_BOOLEAN, G_TYPE_BOOLEAN, G_TYPE_POINTER}},
    {"remove-filter",
     kAction,
     offsetof(GstVantrelClass, remove_filter),
     g_cclosure_marshal_VOID__POINTER,
     g_cclosure_marshal_VOID__POINTERv,
     G_TYPE_NONE,
     1,
     {G_TYPE_POINTER}},
    {"temi-data",
     kEmitted,
     offsetof(GstVantrelClass, temi_upload),
     g_cclosure_marshal_VOID__UINT_POINTER,
     g_cclosure_marshal_VOID__UINT_POINTERv,
     G_TYPE_NONE,
     2,
     {G_TYPE_UINT, G_TYPE_POINTER}},
});
static_assert(std::tuple_size_v<decltype(kSignals)> == N_VANTREL_SIGNALS);

}  // namespace

void create_signals(gpointer klass) {
  const GType type = G_TYPE_FROM_CLASS(klass);
  for (guint i = 0; i < kSignals.size(); i++) {
    const SignalRow& row = kSignals[i];
    gst_vantrel_signals[i] = g_signal_newv(row.name, type, static_cast<GSignalFlags>(row.flags),
                                           g_signal_type_cclosure_new(type, row.closure_offset),
                                           nullptr, nullptr, row.marshaller, row.return_type,
                                           row.n_params, const_cast<GType*>(row.params.data()));
    // Without it every emission would box its arguments.
    g_signal_set_va_marshaller(gst_vantrel_signals[i], type, row.va_marshaller);
  }
}
