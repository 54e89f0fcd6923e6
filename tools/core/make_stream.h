// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <string>

namespace tools {

/// Makes a transport stream of some seconds with real encoders, H.264 video and
/// two audio streams, and puts service information in between. Failure when an
/// encoder is missing or the file cannot be written.
void make_stream(const std::string& path);

}  // namespace tools
