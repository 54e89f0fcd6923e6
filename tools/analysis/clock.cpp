// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/analysis/clock.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace analysis {
namespace {

/// PCRs before and after one that it is compared with, and the fewest of those.
constexpr std::size_t kNeighbours = 8;
constexpr std::size_t kFewestNeighbours = 3;
/// A late PCR is one whose place is late as well, by this factor at most.
constexpr double kPlausible = 2;

double quantile(std::vector<double>* values, double share) {
  const auto at = static_cast<std::size_t>(share * static_cast<double>(values->size() - 1));
  const auto nth = values->begin() + static_cast<std::ptrdiff_t>(at);
  std::nth_element(values->begin(), nth, values->end());
  return *nth;
}

/// Whether the two may be a constant bit rate's.
bool follows(const PcrPoint& point) {
  return point.step == PcrStep::steady || point.step == PcrStep::late;
}

/// Seconds per packet between neighbours no more than `limit` seconds apart.
std::vector<double> packet_times(std::span<const PcrSample> samples, double limit) {
  std::vector<double> times;
  for (std::size_t i = 1; i < samples.size(); i++) {
    const PcrSample& before = samples[i - 1];
    const double ahead = pcr_difference(before.value, samples[i].value);
    if (samples[i].signalled || samples[i].losses != before.losses || ahead <= 0 || ahead > limit)
      continue;
    times.push_back(ahead / static_cast<double>(samples[i].packet - before.packet));
  }
  return times;
}

}  // namespace

Clock::Clock(std::span<const PcrSample> samples) {
  find_rate(samples);
  if (!usable()) return;
  points_.push_back({.packet = samples[0].packet,
                     .difference = std::numeric_limits<double>::quiet_NaN(),
                     .seconds = static_cast<double>(samples[0].packet) * packet_time_,
                     .deviation = {}});
  for (std::size_t i = 1; i < samples.size(); i++)
    points_.push_back(point_of(samples[i - 1], samples[i]));
  measure_deviations(samples);
}

void Clock::find_rate(std::span<const PcrSample> samples) {
  constexpr double kSecond = 1;
  std::vector<double> times = packet_times(samples, kPcrLimit);
  if (times.empty()) times = packet_times(samples, kSecond);
  if (times.empty()) return;
  packet_time_ = quantile(&times, 0.5);
  rate_spread_ = (quantile(&times, 0.9) - quantile(&times, 0.1)) / packet_time_;
}

PcrPoint Clock::point_of(const PcrSample& before, const PcrSample& sample) const {
  PcrPoint point{.packet = sample.packet, .deviation = {}};
  point.difference = pcr_difference(before.value, sample.value);
  const double usual = static_cast<double>(sample.packet - before.packet) * packet_time_;
  const bool plausible =
      point.difference > usual / kPlausible && point.difference < usual * kPlausible;
  if (sample.signalled)
    point.step = PcrStep::signalled;
  else if (sample.losses != before.losses)
    point.step = PcrStep::sync_lost;
  else if (point.difference > 0 && point.difference <= kPcrLimit)
    point.step = PcrStep::steady;
  else
    point.step = plausible ? PcrStep::late : PcrStep::jump;
  point.interval = follows(point) ? point.difference : usual;
  point.seconds = points_.back().seconds + point.interval;
  return point;
}

double Clock::seconds_at(std::uint64_t packet) const {
  const auto after =
      std::lower_bound(points_.begin(), points_.end(), packet,
                       [](const PcrPoint& point, std::uint64_t at) { return point.packet < at; });
  const auto from = [&](const PcrPoint& point, double rate) {
    return point.seconds + (static_cast<double>(packet) - static_cast<double>(point.packet)) * rate;
  };
  if (after == points_.begin()) return from(points_.front(), packet_time_);
  if (after == points_.end()) return from(points_.back(), packet_time_);
  const PcrPoint& before = *std::prev(after);
  return from(before, after->interval / static_cast<double>(after->packet - before.packet));
}

void Clock::measure_deviations(std::span<const PcrSample> samples) {
  if (rate_spread_ > kSteadyRate) return;
  std::size_t begin = 0;
  for (std::size_t i = 1; i <= samples.size(); i++) {
    if (i < samples.size() && follows(points_[i])) continue;
    measure_run(samples, begin, i);
    begin = i;
  }
}

void Clock::measure_run(std::span<const PcrSample> samples, std::size_t begin, std::size_t end) {
  for (std::size_t i = begin; i < end; i++) {
    const std::size_t reach = std::min({kNeighbours, i - begin, end - 1 - i});
    if (reach < kFewestNeighbours) continue;
    std::vector<double> deviations;
    for (std::size_t distance = 1; distance <= reach; distance++) {
      const PcrSample& before = samples[i - distance];
      const PcrSample& after = samples[i + distance];
      const double share = static_cast<double>(samples[i].packet - before.packet) /
                           static_cast<double>(after.packet - before.packet);
      deviations.push_back(pcr_difference(before.value, samples[i].value) -
                           share * pcr_difference(before.value, after.value));
    }
    points_[i].deviation = quantile(&deviations, 0.5);
  }
}

}  // namespace analysis
