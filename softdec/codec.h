// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <gst/gst.h>

#include <cstdint>
#include <vector>

namespace softdec {

/// Every video and every audio type of the demultiplexer's caps, but for
/// "audio/x-raw-int": the framework warns of a template with that name, and has no
/// element left that takes it.
inline constexpr const char* kVideoTypes =
    "video/mpeg, mpegversion=(int)[1, 2], systemstream=(boolean)false; "
    "video/x-h264; video/x-hevc";
inline constexpr const char* kAudioTypes =
    "audio/mpeg; audio/x-ac3; audio/x-dts; audio/x-private-ts-lpcm; audio/x-adpcm; "
    "audio/x-wma; audio/x-mlp; audio/x-dra";

/// What the source pads may give, in the caps that parsers take.
inline constexpr const char* kVideoStreams =
    "video/mpeg, mpegversion=(int)[1, 2], systemstream=(boolean)false; "
    "video/x-h264, stream-format=(string)byte-stream; "
    "video/x-h265, stream-format=(string)byte-stream";
inline constexpr const char* kAudioStreams =
    "audio/mpeg, mpegversion=(int)1; "
    "audio/mpeg, mpegversion=(int){2, 4}, stream-format=(string){adts, loas}; "
    "audio/x-ac3; audio/x-eac3; audio/x-dts; audio/x-private-ts-lpcm; "
    "audio/x-adpcm; audio/x-wma; audio/x-mlp; audio/x-dra";

/// The caps of an elementary stream that the demultiplexer announces as
/// `announced`, with `payload` in hand: what the announcement leaves open (ADTS or
/// LATM, AC-3 or its enhanced form, any of these where only a PID was set) stands
/// in the stream. Where the payload does not begin with a syncword, `current`
/// (nullable) goes on. Types without a row stay as they are. The caller owns the
/// result.
GstCaps* stream_caps(GstCaps* announced, const std::vector<std::uint8_t>& payload,
                     GstCaps* current);

/// The demultiplexer's caps for a video codec's four characters, first one in the
/// lowest byte ("MPG2", "H264", "H265"); nullptr for others. The caller owns them.
GstCaps* caps_of_fourcc(std::uint32_t fourcc);

}  // namespace softdec
