// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "tools/core/input.h"
#include "tools/core/psi.h"

namespace tools {

struct PlayOptions {
  bool json = false;
  std::string service;                   // name or number; else the first that can be shown
  std::string audio;                     // language; else the first
  std::optional<std::string> subtitles;  // language, "" for any
  std::optional<double> seconds;
};

/// Plays a service in a window until the stream, the duration or the window ends,
/// or a signal comes. Failure when nothing of it could be shown. `begun` is when the
/// user began to wait.
void play(Input& input, const Psi& psi, const PlayOptions& options,
          std::chrono::steady_clock::time_point begun);

}  // namespace tools
