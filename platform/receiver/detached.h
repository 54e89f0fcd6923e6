// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <system_error>
#include <thread>
#include <utility>

namespace qel::receiver {

/// Runs `work` in a thread of its own, on what lives as long as the process. False
/// where the system has no thread for that.
template <typename Work>
bool start_detached(Work work) {
  try {
    std::thread(std::move(work)).detach();
    return true;
  } catch (const std::system_error&) {
    return false;
  }
}

}  // namespace qel::receiver
