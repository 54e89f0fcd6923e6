#!/usr/bin/env bash
# SPDX-License-Identifier: LGPL-2.1-or-later
#
# exports.sh MODULE: what the plugin's module exports is what others may call.
set -euo pipefail
marshal=gst_vantrel_marshal
diff <(
  printf '%s\n' gst_plugin_desc gst_vantrel_get_type gst_vantrel_temi_initiate \
    gst_vantrel_{,pes_}{initiate,start,stop,pause,resume,destory} \
    gst_vantrel_map_caps gst_tv_ts_demux_map_caps \
    ${marshal}_VOID__UINT_UINT_POINTER_UINT_POINTER ${marshal}_VOID__UINT_POINTER_UINT \
    ${marshal}_POINTER__UINT_UINT_UINT_POINTER_POINTER_UINT_BOOLEAN_BOOLEAN_POINTER |
    LC_ALL=C sort
) <(nm --dynamic --defined-only --format=just-symbols "$1" | LC_ALL=C sort)
