// SPDX-License-Identifier: LGPL-2.1-or-later
#include <array>
#include <type_traits>

#include "config/handlers.h"
#include "config/properties.h"
#include "instance/instance.h"

namespace vantrel {
namespace {

enum class ValueType { kBoolean, kInteger, kNatural, kString, kPointer };

/// Type of a property's value, with range and default where it is a number.
struct ValueSpec {
  ValueType type;
  gint64 minimum = 0;
  gint64 maximum = 0;
  gint64 initial = 0;
};

constexpr ValueSpec boolean() { return {ValueType::kBoolean}; }
constexpr ValueSpec string() { return {ValueType::kString}; }
constexpr ValueSpec pointer() { return {ValueType::kPointer}; }
constexpr ValueSpec integer(gint64 minimum, gint64 maximum, gint64 initial) {
  return {ValueType::kInteger, minimum, maximum, initial};
}
constexpr ValueSpec natural(gint64 minimum, gint64 maximum, gint64 initial) {
  return {ValueType::kNatural, minimum, maximum, initial};
}

// Properties that are a field of the element and nothing else.

template <typename Field>
struct Plain {
  using Type = Field;
};
template <typename Value>
struct Plain<Shared<Value>> {
  using Type = Value;
};

/// Among fields flags are signed, numbers are not.
template <auto kField>
void store_field(GstVantrel* self, guint, const GValue* value) {
  using Type = typename Plain<std::remove_reference_t<decltype(self->*kField)>>::Type;
  if constexpr (std::is_pointer_v<Type>)
    self->*kField = static_cast<Type>(g_value_get_pointer(value));
  else if constexpr (std::is_signed_v<Type>)
    self->*kField = g_value_get_boolean(value);
  else
    self->*kField = static_cast<Type>(g_value_get_uint(value));
}

/// For the parameters of the next section filter.
template <auto kField>
void store_parameter(GstVantrel* self, guint id, const GValue* value) {
  std::lock_guard lock(self->filter_lock);
  store_field<kField>(self, id, value);
}

template <auto kField>
void read_field(GstVantrel* self, GValue* value) {
  if (G_VALUE_HOLDS_BOOLEAN(value))
    g_value_set_boolean(value, static_cast<gboolean>(self->*kField));
  else
    g_value_set_uint(value, static_cast<guint>(self->*kField));
}

constexpr guint kRead = G_PARAM_READABLE;
constexpr guint kWrite = G_PARAM_WRITABLE;
constexpr guint kReadWrite = G_PARAM_READWRITE;
constexpr guint kWriteStatic = G_PARAM_WRITABLE | G_PARAM_STATIC_STRINGS;
constexpr guint kReadWriteStatic = G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS;

struct PropertyRow {
  PropertyId id;
  const char* display_name;
  const char* name;
  const char* nick;
  const char* blurb;
  ValueSpec value;
  guint flags;
  PropertySetter set;  // NULL for a property that cannot be written
  PropertyGetter get;  // NULL for a property that cannot be read
};

// In id order. Nicks and blurbs are what users of the element know, oddities
// included.
constexpr auto kProperties = std::to_array<PropertyRow>({
    {PROP_SILENT, "SILENT", "silent", "Silent", "Produce verbose output ?", boolean(), kReadWrite,
     store_field<&VantrelState::silent>, read_field<&VantrelState::silent>},
    {PROP_DEMUX_TYPE, "DEMUX_TYPE", "demux-type", "demux-type",
     "demuxer type - demux-type=0(live demux) / demux-type=1(PVRplayback)/ demux-type = "
     "2(DTVRecord)/ demux-type = 3(ATVRecord)",
     natural(0, 65535, 0), kReadWriteStatic, set_prop_demux_type,
     read_field<&VantrelState::dmx_type>},
    {PROP_MULTI_PIDS, "MULTI_PIDS", "pids",
     "Colon separated list of PIDs containing Elementary Streams",
     "PIDs to treat as Elementary Streams in the absence of a PMT, "
     "v:pid:codec/a:pid:codec/m:pid:codec, eg video:4129/audio:4133/subtitle:4134/others:xxx",
     string(), kReadWriteStatic, set_prop_demux_multi_pids, get_prop_demux_multi_pids},
    {PROP_AUDIO_PID, "AUDIO_PID", "apid", "Apid", "audio demuxer pid", natural(0, 65535, 0),
     kWriteStatic, set_prop_demux_apid, nullptr},
    {PROP_VIDEO_PID, "VIDEO_PID", "vpid", "Vpid", "video demuxer pid", natural(0, 65535, 0),
     kWriteStatic, set_prop_demux_vpid, nullptr},
    {PROP_SUB_VIDEO_PID, "SUB_VIDEO_PID", "vpid-sub", "Vpid-sub", "sub video demuxer pid,for KR3D",
     natural(0, 65535, 0), kWriteStatic, set_prop_demux_vpid_sub, nullptr},
    {PROP_STOP_SUB_VIDEO_PID, "STOP_SUB_VIDEO_PID", "vpid-sub-stop", "vpid-sub-stop",
     "stop the sub video demuxer pid,for KR3D", boolean(), kWrite, set_prop_demux_vpid_sub_stop,
     nullptr},
    {PROP_SUB_PID, "SUB_PID", "sub-pid", "Sub-pid", "demuxer subtitle pids", integer(-1, 65535, 0),
     kWriteStatic, set_prop_demux_sub_isdb_pid, nullptr},
    {PROP_TTX_PID, "TTX_PID", "ttx-pid", "Ttx-pid", "demuxer TTX pids", integer(-1, 65535, 0),
     kWriteStatic, set_prop_demux_ttx_super_pid, nullptr},
    {PROP_PCR_PID, "PCR_PID", "pcr-pid", "Pcr-pid", "demuxer pcr pids", natural(0, 65535, 0),
     kWriteStatic, set_prop_demux_pcrpid, nullptr},
    {PROP_AD_PID, "AD_PID", "ad-pid", "AD-pid", "audio description pid", natural(0, 65535, 0),
     kWriteStatic, set_prop_demux_adpid, nullptr},
    {PROP_ISDB_PID, "ISDB_PID", "isdb-pid", "Isdb-pid", "demuxer ISDB_CAPTION pids",
     integer(-1, 65535, 0), kWriteStatic, set_prop_demux_sub_isdb_pid, nullptr},
    {PROP_SUPER_PID, "SUPER_PID", "super-pid", "Super-pid", "demuxer SUPER_IMPOSE pids",
     integer(-1, 65535, 0), kWriteStatic, set_prop_demux_ttx_super_pid, nullptr},
    {PROP_STOP_ISDB_PID, "STOP_ISDB_PID", "stop-isdb-pid", "Stop-isdb-pid",
     "Stop demuxer ISDB_CAPTION pids", natural(0, 65535, 0), kWriteStatic,
     set_prop_demux_stop_isdbpid, nullptr},
    {PROP_OTHER_PID, "OTHER_PID", "other-pid", "other-pid", "for record section data or other data",
     natural(0, 65535, 0), kWriteStatic, set_prop_demux_otherpid, nullptr},
    {PROP_DEMUX_ID, "DEMUX_ID", "demux-id", "Demux-id", "demuxer id", natural(0, 6, 0),
     kReadWriteStatic, set_prop_demux_id, read_field<&VantrelState::demux_id>},
    {PROP_ADAPTER_ID, "ADAPTER_ID", "adapt-id", "Adapt-id", "adatper id", natural(0, 6, 0),
     kReadWriteStatic, set_prop_demux_adapter_id, read_field<&VantrelState::adapter_id>},
    {PROP_AD_MODE, "AD_MODE", "ad-mode", "AD-mode", "Enable AD mode ?", boolean(), kWrite,
     set_prop_demux_ad_mode, nullptr},
    {PROP_SEC_FILTER, "SEC_FILTER", "section-filtering", "Section-filtering",
     "start or stop section filter", boolean(), kWrite, set_prop_demux_section_filtering, nullptr},
    {PROP_SEC_CRC_CHK, "SEC_CRC_CHK", "section-check-crc", "Section-check-crc",
     "check the crc of section data", boolean(), kWrite,
     store_parameter<&VantrelState::section_check_crc>, nullptr},
    {PROP_SEC_VER_CHK, "SEC_VER_CHK", "section-check-version", "Section-check-version",
     "check the version of section data", boolean(), kWrite,
     store_parameter<&VantrelState::section_check_version>, nullptr},
    {PROP_SEC_HANDLER, "SEC_HANDLER", "sec-handler", "Sec-handler", "demuxer section handler",
     pointer(), kWrite, store_parameter<&VantrelState::section_handler>, nullptr},
    {PROP_STC, "STC", "dmx-stc", "DEMUX STC", "get system clock", pointer(), kRead, nullptr,
     get_prop_demux_stc},
    {PROP_PES_TYPE, "PES_TYPE", "pestype", "Pestype", "demuxer pcr pids", natural(0, 65535, 0),
     kWriteStatic, store_parameter<&VantrelState::pestype>, nullptr},
    {PROP_FILTER, "FILTER", "filter", "Filter", "demuxer filter array", pointer(), kWrite,
     store_parameter<&VantrelState::section_filter>, nullptr},
    {PROP_FILTER_INDEX, "FILTER_INDEX", "filter-index", "Filter-index", "demuxer filter index",
     natural(0, G_MAXUINT, 0), kWriteStatic, store_parameter<&VantrelState::filter_index>, nullptr},
    {PROP_MASK, "MASK", "mask", "Mask", "demuxer section filter mask", pointer(), kWrite,
     store_parameter<&VantrelState::section_mask>, nullptr},
    {PROP_MASK_INDEX, "MASK_INDEX", "mask-index", "Mask-index", "demuxer mask index",
     natural(0, G_MAXUINT, 0), kWriteStatic, store_parameter<&VantrelState::mask_index>, nullptr},
    {PROP_SECTION_PID, "SECTION_PID", "section-pid", "Section-pid", "demuxer section pid",
     natural(0, 65535, 0), kWriteStatic, store_parameter<&VantrelState::section_pid>, nullptr},
    {PROP_SECTION_TABLE_ID, "SECTION_TABLE_ID", "section-tab-id", "Section-tab-id",
     "demuxer section table id", natural(0, G_MAXUINT, 0), kWriteStatic,
     store_parameter<&VantrelState::section_table_id>, nullptr},
    {PROP_SECTION_TABLE_ID_EX, "SECTION_TABLE_ID_EX", "section-tab-id-ex", "Section-tab-id-ex",
     "demuxer section table id ext", natural(0, G_MAXUINT, 0), kWriteStatic,
     store_parameter<&VantrelState::section_table_id_ex>, nullptr},
    {PROP_STC_NUM, "STC_NUM", "stc", "STC", "set STC number", natural(0, 255, 0), kWrite,
     set_prop_demux_stc_num, nullptr},
    {PROP_THROUGH_CAM, "THROUGH_CAM", "through-cam", "Through-Cam", "CI pass through or not",
     boolean(), kWrite, store_field<&VantrelState::through_cam>, nullptr},
    {PROP_AUDIO_FD, "AUDIO_FD", "dmx-audio-fd", "dmx-audio-fd", "dmx audio fd",
     integer(G_MININT, G_MAXINT, 0), kWriteStatic, set_prop_demux_audio_fd, nullptr},
    {PROP_VIDEO_FD, "VIDEO_FD", "dmx-video-fd", "dmx-video-fd", "dmx video fd",
     integer(G_MININT, G_MAXINT, 0), kWriteStatic, set_prop_demux_video_fd, nullptr},
    {PROP_PCR_FD, "PCR_FD", "dmx-pcr-fd", "dmx-pcr-fd", "dmx pcr fd",
     integer(G_MININT, G_MAXINT, 0), kWriteStatic, set_prop_demux_pcr_fd, nullptr},
    {PROP_SOURCE_INPUT, "SOURCE_INPUT", "dmx-source-input", "dmx-source-input", "dmx source input",
     integer(G_MININT, G_MAXINT, 0), kWriteStatic, set_prop_demux_source_input, nullptr},
    {PROP_CLEAR_PVR_REC, "CLEAR_PVR_REC", "clear-pvr-record", "Clear-pvr-record",
     "clear pvr record stream currently with the pid", natural(0, 65535, 0), kWriteStatic,
     set_prop_demux_clear_pvr_rec, nullptr},
    {PROP_DEC_TO_LINK, "DEC_TO_LINK", "decoder-to-link", "decoder-to-link", "decoder-to-link",
     natural(0, 1, 0), kReadWriteStatic, set_prop_demux_dec_to_link,
     read_field<&VantrelState::dec_to_link>},
    {PROP_BUF_SIZE, "BUF_SIZE", "dmx-buf-size", "Dmx-buf-size", "decoder-to-link",
     natural(0, G_MAXUINT, 131072), kReadWriteStatic, set_prop_demux_buf_size,
     read_field<&VantrelState::buf_size>},
    {PROP_VIDEODEC_DEVICE, "VIDEODEC_DEVICE", "videodec-device", "videodec-device",
     "set video decoder's device node", string(), kReadWrite, set_prop_demux_videodec_device,
     get_prop_demux_videodec_device},
    {PROP_VIDEO_CODEC_TYPE, "VIDEO_CODEC_TYPE", "video-codec-type", "video-codec-type",
     "set video codec type", integer(G_MININT, G_MAXINT, 0), kReadWrite,
     set_prop_demux_video_codec_type, get_prop_demux_video_codec_type},
    {PROP_TEMI_ENABLE, "TEMI_ENABLE", "enable", "enable", "Start(1) or stop(0) to read TEMI data",
     boolean(), kWrite, set_prop_demux_temi_enable, nullptr},
    {PROP_VIDEODEC_DEVICE_SUB, "VIDEODEC_DEVICE_SUB", "videodec-device-sub", "videodec-device-sub",
     "set device name of 2nd video decoder for 2 PID mode HFR", string(), kReadWrite,
     set_prop_demux_videodec_device_sub, get_prop_demux_videodec_device_sub},
});
static_assert(kProperties.size() == 44);

// Nothing shows it: GObject lists properties by id, tools list them by name.
constexpr auto kInstallOrder = std::to_array<guint>(
    {1,  3,  4,  11, 5,  6,  7,  8,  9,  12, 13, 14, 38, 10, 15, 16, 39, 40, 17, 2,  18, 33,
     19, 20, 21, 23, 32, 24, 25, 27, 22, 26, 28, 29, 30, 31, 34, 35, 36, 37, 41, 42, 43, 44});
static_assert(kInstallOrder.size() == kProperties.size());

const PropertyRow* row_of(guint id) {
  return id >= 1 && id <= kProperties.size() ? &kProperties[id - 1] : nullptr;
}

GParamSpec* make_pspec(const PropertyRow& row) {
  const auto flags = static_cast<GParamFlags>(row.flags);
  const ValueSpec& value = row.value;
  switch (value.type) {
    case ValueType::kBoolean:
      return g_param_spec_boolean(row.name, row.nick, row.blurb, FALSE, flags);
    case ValueType::kInteger:
      return g_param_spec_int(row.name, row.nick, row.blurb, static_cast<gint>(value.minimum),
                              static_cast<gint>(value.maximum), static_cast<gint>(value.initial),
                              flags);
    case ValueType::kNatural:
      return g_param_spec_uint(row.name, row.nick, row.blurb, static_cast<guint>(value.minimum),
                               static_cast<guint>(value.maximum), static_cast<guint>(value.initial),
                               flags);
    case ValueType::kString:
      return g_param_spec_string(row.name, row.nick, row.blurb, "", flags);
    case ValueType::kPointer:
      return g_param_spec_pointer(row.name, row.nick, row.blurb, flags);
  }
  return nullptr;
}

/// The framework's warning for an id without a row, under the element's name.
void warn_invalid(GObject* object, guint id, GParamSpec* pspec) {
  g_warning("%s:%d: invalid %s id %u for \"%s\" of type '%s' in '%s'", "gstvantrel", __LINE__,
            "property", id, pspec->name, g_type_name(G_PARAM_SPEC_TYPE(pspec)),
            G_OBJECT_TYPE_NAME(object));
}

}  // namespace

const gchar* vantrel_get_property_name(guint id) {
  const PropertyRow* row = row_of(id);
  return row != nullptr ? row->display_name : "UNKNOWN";
}

void install_properties(GObjectClass* object_class) {
  for (const guint id : kInstallOrder)
    g_object_class_install_property(object_class, id, make_pspec(kProperties[id - 1]));
}

void gst_vantrel_set_property(GObject* object, guint id, const GValue* value, GParamSpec* pspec) {
  const PropertyRow* row = row_of(id);
  if (row != nullptr && row->set != nullptr)
    row->set(reinterpret_cast<GstVantrel*>(object), id, value);
  else
    warn_invalid(object, id, pspec);
}

void gst_vantrel_get_property(GObject* object, guint id, GValue* value, GParamSpec* pspec) {
  const PropertyRow* row = row_of(id);
  if (row != nullptr && row->get != nullptr)
    row->get(reinterpret_cast<GstVantrel*>(object), value);
  else
    warn_invalid(object, id, pspec);
}

}  // namespace vantrel
