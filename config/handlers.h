// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <glib-object.h>

struct GstVantrel;

namespace vantrel {

// Handlers of the properties. They run on the thread that reads or writes the
// property and never report failure to it: they log.

/// Codec id of teletext.
inline constexpr guint kTeletext = 30;

/// Writes property `id`; one handler may serve several.
using PropertySetter = void (*)(GstVantrel* self, guint id, const GValue* value);
/// Reads a property.
using PropertyGetter = void (*)(GstVantrel* self, GValue* value);

// PIDs: pid_properties.cpp, text_pid_properties.cpp, removal_properties.cpp
void set_prop_demux_apid(GstVantrel* self, guint id, const GValue* value);
void set_prop_demux_vpid(GstVantrel* self, guint id, const GValue* value);
void set_prop_demux_vpid_sub(GstVantrel* self, guint id, const GValue* value);
void set_prop_demux_pcrpid(GstVantrel* self, guint id, const GValue* value);
void set_prop_demux_adpid(GstVantrel* self, guint id, const GValue* value);
void set_prop_demux_otherpid(GstVantrel* self, guint id, const GValue* value);
void set_prop_demux_sub_isdb_pid(GstVantrel* self, guint id, const GValue* value);
void set_prop_demux_ttx_super_pid(GstVantrel* self, guint id, const GValue* value);
void set_prop_demux_vpid_sub_stop(GstVantrel* self, guint id, const GValue* value);
void set_prop_demux_stop_isdbpid(GstVantrel* self, guint id, const GValue* value);
void set_prop_demux_clear_pvr_rec(GstVantrel* self, guint id, const GValue* value);
void set_prop_demux_ad_mode(GstVantrel* self, guint id, const GValue* value);

// The list of streams: list_property.cpp
void set_prop_demux_multi_pids(GstVantrel* self, guint id, const GValue* value);

// Device and mode: device_properties.cpp
void set_prop_demux_type(GstVantrel* self, guint id, const GValue* value);
void set_prop_demux_id(GstVantrel* self, guint id, const GValue* value);
void set_prop_demux_adapter_id(GstVantrel* self, guint id, const GValue* value);
void set_prop_demux_source_input(GstVantrel* self, guint id, const GValue* value);
void set_prop_demux_buf_size(GstVantrel* self, guint id, const GValue* value);
void set_prop_demux_stc_num(GstVantrel* self, guint id, const GValue* value);
void set_prop_demux_dec_to_link(GstVantrel* self, guint id, const GValue* value);
void set_prop_demux_audio_fd(GstVantrel* self, guint id, const GValue* value);
void set_prop_demux_video_fd(GstVantrel* self, guint id, const GValue* value);
void set_prop_demux_pcr_fd(GstVantrel* self, guint id, const GValue* value);
void set_prop_demux_temi_enable(GstVantrel* self, guint id, const GValue* value);

// Section filters by properties: section_properties.cpp
void set_prop_demux_section_filtering(GstVantrel* self, guint id, const GValue* value);

// Video decoders: decoder_properties.cpp
void set_prop_demux_videodec_device(GstVantrel* self, guint id, const GValue* value);
void set_prop_demux_videodec_device_sub(GstVantrel* self, guint id, const GValue* value);
void set_prop_demux_video_codec_type(GstVantrel* self, guint id, const GValue* value);

// Reading: read_back.cpp
void get_prop_demux_multi_pids(GstVantrel* self, GValue* value);
void get_prop_demux_stc(GstVantrel* self, GValue* value);
void get_prop_demux_videodec_device(GstVantrel* self, GValue* value);
void get_prop_demux_videodec_device_sub(GstVantrel* self, GValue* value);
void get_prop_demux_video_codec_type(GstVantrel* self, GValue* value);

}  // namespace vantrel
