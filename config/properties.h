// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <glib-object.h>

namespace vantrel {

/// Property ids; 0 is none.
enum PropertyId : guint {
  PROP_SILENT = 1,
  PROP_DEMUX_TYPE = 2,
  PROP_MULTI_PIDS = 3,
  PROP_AUDIO_PID = 4,
  PROP_VIDEO_PID = 5,
  PROP_SUB_VIDEO_PID = 6,
  PROP_STOP_SUB_VIDEO_PID = 7,
  PROP_SUB_PID = 8,
  PROP_TTX_PID = 9,
  PROP_PCR_PID = 10,
  PROP_AD_PID = 11,
  PROP_ISDB_PID = 12,
  PROP_SUPER_PID = 13,
  PROP_STOP_ISDB_PID = 14,
  PROP_OTHER_PID = 15,
  PROP_DEMUX_ID = 16,
  PROP_ADAPTER_ID = 17,
  PROP_AD_MODE = 18,
  PROP_SEC_FILTER = 19,
  PROP_SEC_CRC_CHK = 20,
  PROP_SEC_VER_CHK = 21,
  PROP_SEC_HANDLER = 22,
  PROP_STC = 23,
  PROP_PES_TYPE = 24,
  PROP_FILTER = 25,
  PROP_FILTER_INDEX = 26,
  PROP_MASK = 27,
  PROP_MASK_INDEX = 28,
  PROP_SECTION_PID = 29,
  PROP_SECTION_TABLE_ID = 30,
  PROP_SECTION_TABLE_ID_EX = 31,
  PROP_STC_NUM = 32,
  PROP_THROUGH_CAM = 33,
  PROP_AUDIO_FD = 34,
  PROP_VIDEO_FD = 35,
  PROP_PCR_FD = 36,
  PROP_SOURCE_INPUT = 37,
  PROP_CLEAR_PVR_REC = 38,
  PROP_DEC_TO_LINK = 39,
  PROP_BUF_SIZE = 40,
  PROP_VIDEODEC_DEVICE = 41,
  PROP_VIDEO_CODEC_TYPE = 42,
  PROP_TEMI_ENABLE = 43,
  PROP_VIDEODEC_DEVICE_SUB = 44,
};

/// Name of a property in log lines; "UNKNOWN" for an id that is none. Static.
const gchar* vantrel_get_property_name(guint id);

/// Installs the 44 properties on the element's class.
void install_properties(GObjectClass* object_class);

void gst_vantrel_set_property(GObject* object, guint id, const GValue* value, GParamSpec* pspec);
void gst_vantrel_get_property(GObject* object, guint id, GValue* value, GParamSpec* pspec);

}  // namespace vantrel
