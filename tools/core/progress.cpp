// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/core/progress.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

namespace tools {
namespace {

constexpr int kBarWidth = 32;
constexpr auto kRefresh = std::chrono::milliseconds(100);

std::string bar(double share) {
  std::string text(static_cast<std::size_t>(share * kBarWidth), '#');
  text.resize(kBarWidth, '.');
  return text;
}

std::string time_left(double seconds) {
  std::array<char, 32> text;
  const int whole = static_cast<int>(std::min(seconds, 359999.0));
  std::snprintf(text.data(), text.size(), "%d:%02d left", whole / 60, whole % 60);
  return text.data();
}

}  // namespace

std::string human_bytes(double bytes) {
  constexpr std::array<const char*, 4> kUnits = {"B", "kB", "MB", "GB"};
  std::size_t unit = 0;
  for (; bytes >= 1000 && unit + 1 < kUnits.size(); unit++) bytes /= 1000;
  std::array<char, 32> text;
  std::snprintf(text.data(), text.size(), unit == 0 ? "%.0f %s" : "%.1f %s", bytes, kUnits[unit]);
  return text.data();
}

Progress::Progress(std::string what, std::uint64_t total)
    : what_(std::move(what)), total_(total), terminal_(isatty(STDERR_FILENO) != 0) {}

Progress::~Progress() {
  if (terminal_) std::fprintf(stderr, "\r\033[K");
}

void Progress::show(std::uint64_t done) {
  const auto now = Clock::now();
  if (!terminal_ || now - shown_ < kRefresh) return;
  shown_ = now;
  const double seconds = std::chrono::duration<double>(now - begun_).count();
  const double rate = static_cast<double>(done) / seconds;
  const std::string speed = human_bytes(rate) + "/s";
  if (total_ == 0) {
    std::fprintf(stderr, "\r\033[K%s  %s  %s", what_.c_str(),
                 human_bytes(static_cast<double>(done)).c_str(), speed.c_str());
    return;
  }
  const double share = std::min(1.0, static_cast<double>(done) / static_cast<double>(total_));
  const double left = seconds / std::max(share, 1e-6) * (1 - share);
  std::fprintf(stderr, "\r\033[K%s [%s] %3d %%  %s  %s", what_.c_str(), bar(share).c_str(),
               static_cast<int>(share * 100), speed.c_str(), time_left(left).c_str());
}

}  // namespace tools
