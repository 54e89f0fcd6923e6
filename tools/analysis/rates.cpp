// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/analysis/rates.h"

#include <algorithm>

namespace analysis {
namespace {

/// The shortest span that says something about video.
constexpr double kShortestSpan = 0.1;
constexpr double kMostSpans = 120;

struct Span {
  std::size_t first_window;
  std::size_t last_window;  // behind it
  double begin;
  double end;
};

/// Windows have as many packets each, so their times differ where the rate does.
std::vector<Span> spans_of(const Clock& clock, std::uint64_t window, std::uint64_t packets) {
  const double duration = clock.seconds_at(packets) - clock.seconds_at(0);
  const double shortest = std::max(kShortestSpan, duration / kMostSpans);
  const std::size_t windows = (packets + window - 1) / window;
  std::vector<Span> spans;
  Span span{0, 0, clock.seconds_at(0), 0};
  for (std::size_t i = 1; i <= windows; i++) {
    span.last_window = i;
    span.end = clock.seconds_at(std::min(i * window, packets));
    if (span.end - span.begin < shortest && i < windows) continue;
    // What is left over at the end is too short for a span of its own.
    if (i == windows && !spans.empty() && span.end - span.begin < shortest / 2) {
      spans.back().last_window = i;
      spans.back().end = span.end;
    } else {
      spans.push_back(span);
    }
    span = {i, i, span.end, 0};
  }
  return spans;
}

std::vector<RatePoint> rates_in(const std::vector<Span>& spans,
                                const std::vector<std::uint32_t>& windows) {
  std::vector<RatePoint> rates;
  for (const Span& span : spans) {
    double packets = 0;
    for (std::size_t i = span.first_window; i < std::min(span.last_window, windows.size()); i++)
      packets += windows[i];
    rates.push_back({span.begin, span.end, packets * kPacketBits / (span.end - span.begin)});
  }
  return rates;
}

}  // namespace

std::vector<PidResult> rates_of(const PacketPass& pass, const Clock* clock, std::uint64_t packets) {
  const std::vector<Span> spans =
      clock != nullptr ? spans_of(*clock, pass.window(), packets) : std::vector<Span>{};
  std::vector<unsigned> pids = pass.pids();
  std::sort(pids.begin(), pids.end());
  std::vector<PidResult> results;
  for (const unsigned pid : pids) {
    PidResult result{.pid = pid, .record = &pass.record(pid), .rates = {}};
    result.rates = rates_in(spans, result.record->windows);
    if (clock != nullptr)
      result.mean_rate = static_cast<double>(result.record->packets) * kPacketBits /
                         (clock->seconds_at(packets) - clock->seconds_at(0));
    results.push_back(std::move(result));
  }
  return results;
}

}  // namespace analysis
