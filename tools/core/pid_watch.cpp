// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/core/pid_watch.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "tools/core/failure.h"

namespace tools {
namespace {

constexpr double kPidPatience = 10;

}  // namespace

std::string not_seen_after(double seconds) {
  std::array<char, 48> text;
  std::snprintf(text.data(), text.size(), "not seen after %.3g s", seconds);
  return text.data();
}

PidWatch::PidWatch(const Input& input, std::set<unsigned> pids, std::optional<double> seconds)
    : live_(input.is_live()),
      patience_(seconds.value_or(kPidPatience)),
      pids_(std::move(pids)),
      rates_(input.packet_size()) {}

void PidWatch::check() const {
  if (!live_ || pids_.empty() || since_begin_.elapsed() < patience_) return;
  const bool none = std::all_of(pids_.begin(), pids_.end(),
                                [&](unsigned pid) { return rates_.pid(pid).packets == 0; });
  if (none) throw Failure(Status::kNotFound, missing_after(patience_));
}

void PidWatch::finish() const {
  const std::string text = missing();
  if (!text.empty()) throw Failure(Status::kNotFound, text);
}

std::string PidWatch::missing() const {
  return missing_after(std::max(since_begin_.elapsed(), rates_.seconds()));
}

std::string PidWatch::missing_after(double seconds) const {
  std::string list;
  unsigned count = 0;
  for (const unsigned pid : pids_) {
    if (rates_.pid(pid).packets > 0) continue;
    list += (count++ == 0 ? "" : ", ") + std::to_string(pid);
  }
  if (count == 0) return "";
  return (count == 1 ? "PID " : "PIDs ") + list + " " +
         (live_        ? not_seen_after(seconds)
          : count == 1 ? "was not in the stream"
                       : "were not in the stream");
}

}  // namespace tools
