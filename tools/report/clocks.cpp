// SPDX-License-Identifier: LGPL-2.1-or-later
#include <algorithm>
#include <cmath>

#include "tools/report/format.h"
#include "tools/report/names.h"
#include "tools/report/plot.h"
#include "tools/report/sections.h"

namespace report {
namespace {

constexpr double kMilli = 1e3;
constexpr double kNano = 1e9;

/// What the points of a clock come to.
struct Figures {
  double longest = 0;
  double sum = 0;
  std::size_t over_recommended = 0;
  std::size_t measured = 0;
  double deviation = 0;
};

Figures figures_of(const analysis::Clock& clock) {
  Figures figures;
  for (const analysis::PcrPoint& point : clock.points()) {
    figures.longest = std::max(figures.longest, point.interval);
    figures.sum += point.interval;
    if (point.interval > analysis::kPcrRecommended) figures.over_recommended++;
    if (!point.deviation) continue;
    figures.measured++;
    figures.deviation = std::max(figures.deviation, std::abs(*point.deviation));
  }
  return figures;
}

std::string services_of(const Report& report, unsigned pid) {
  std::string names;
  for (const auto& [number, programme] : report.psi->programmes())
    if (programme.pcr_pid == pid) names += (names.empty() ? "" : ", ") + name_of(programme);
  return names.empty() ? "no PMT names it" : names;
}

void write_row(Markup* out, const Report& report, const analysis::ClockResult& row) {
  const Figures figures = figures_of(row.clock);
  const auto count = static_cast<double>(row.clock.points().size());
  out->open("tr");
  cell(out, hex(row.pid), "mono");
  cell(out, services_of(report, row.pid) +
                (row.pid == report.result.reference ? " · times the multiplex" : ""));
  cell(out, grouped(row.clock.points().size()), "number");
  cell(out, number(std::round(figures.sum / (count - 1) * 1e4) / 10) + " ms", "number");
  cell(out, number(std::round(figures.longest * 1e4) / 10) + " ms", "number");
  cell(out, grouped(figures.over_recommended), "number");
  cell(out, rate(analysis::kPacketBits / row.clock.packet_time()), "number");
  cell(out, number(std::round(row.clock.rate_spread() * 1e6) / 1e4) + " %", "number");
  cell(out,
       figures.measured > 0 ? "±" + number(std::round(figures.deviation * kNano)) + " ns" : "–",
       "number");
  cell(out, grouped(figures.measured), "number");
  out->close();
}

void write_intervals(Markup* out, const Report& report, const analysis::ClockResult& row) {
  Scatter plot{"PCR interval of PID " + hex(row.pid),
               "interval / ms",
               *report.result.duration,
               {},
               {{40, "40 ms"}, {100, "100 ms"}}};
  for (const analysis::PcrPoint& point : row.clock.points())
    if (!std::isnan(point.difference))
      plot.points.push_back({point.seconds, point.interval * kMilli});
  out->open("figure", {{"class", "card"}});
  out->leaf("figcaption", hex(row.pid) + ": PCR interval");
  draw_scatter(out, plot);
  out->close();
}

void write_deviations(Markup* out, const Report& report, const analysis::ClockResult& row) {
  Scatter plot{"PCR deviation of PID " + hex(row.pid),
               "deviation / ns",
               *report.result.duration,
               {},
               {{500, "+500 ns"}, {-500, "−500 ns"}},
               true};
  for (const analysis::PcrPoint& point : row.clock.points())
    if (point.deviation) plot.points.push_back({point.seconds, *point.deviation * kNano});
  out->open("figure", {{"class", "card"}});
  out->leaf("figcaption", hex(row.pid) + ": PCR jitter, as distance from a constant bit rate");
  if (plot.points.empty())
    out->leaf("p",
              "Not measured: the bit rate between PCRs is not constant, or too few PCRs follow "
              "each other.",
              {{"class", "soft"}});
  else
    draw_scatter(out, plot);
  out->close();
}

}  // namespace

void write_clocks(Markup* out, const Report& report) {
  if (report.result.clocks.empty()) {
    out->leaf("p", "There is no PCR.", {{"class", "soft"}});
    return;
  }
  open_table(out, {"PCR PID", "Service", "#PCRs", "#Mean interval", "#Longest", "#Over 40 ms",
                   "#Multiplex rate", "#Rate spread", "#Jitter", "#Measured"});
  for (const analysis::ClockResult& row : report.result.clocks) write_row(out, report, row);
  close_table(out);
  out->open("div", {{"class", "pairs"}});
  for (const analysis::ClockResult& row : report.result.clocks) {
    write_intervals(out, report, row);
    write_deviations(out, report, row);
  }
  out->close();
}

}  // namespace report
