// SPDX-License-Identifier: LGPL-2.1-or-later
#include "softdec/decoder.h"
#include "softdec/element.h"
#include "softdec/recorder.h"
#include "softdec/subtitles.h"

namespace {

gboolean plugin_init(GstPlugin* plugin) {
  for (const softdec::Kind* kind : {&softdec::kVideoDecoder, &softdec::kAudioDecoder,
                                    &softdec::kSubtitles, &softdec::kRecorder})
    if (!softdec::register_element(plugin, *kind)) return FALSE;
  return TRUE;
}

}  // namespace

#define PACKAGE "vantrel"
GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, qelsoft,
                  "Decoder ports and record nodes of the receiver", plugin_init, "0.0.1", "LGPL",
                  "vantrel", "https://vantrel.example")
