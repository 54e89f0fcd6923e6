// SPDX-License-Identifier: LGPL-2.1-or-later
#include <algorithm>

#include "tools/report/format.h"
#include "tools/report/plot.h"
#include "tools/report/sections.h"

namespace report {
namespace {

/// PIDs with a colour of their own; the rest share one.
constexpr std::size_t kColours = 10;

std::vector<Step> steps_of(const analysis::PidResult& pid, double unit) {
  std::vector<Step> steps;
  for (const analysis::RatePoint& point : pid.rates)
    steps.push_back({point.begin, point.end, point.bits / unit});
  return steps;
}

std::string label_of(const Report& report, unsigned pid) {
  const std::string purpose = purpose_of(report, pid);
  return hex(pid) + (purpose.empty() ? "" : " " + purpose);
}

void add(const std::vector<Step>& steps, Layer* rest) {
  if (rest->steps.empty()) {
    rest->steps = steps;
    return;
  }
  for (std::size_t i = 0; i < steps.size(); i++) rest->steps[i].value += steps[i].value;
}

/// The largest PIDs, then all others, then stuffing.
std::vector<Layer> layers_of(const Report& report) {
  constexpr double kMega = 1e6;
  std::vector<const analysis::PidResult*> pids;
  for (const analysis::PidResult& pid : report.result.pids) pids.push_back(&pid);
  std::stable_sort(pids.begin(), pids.end(), [](const auto* left, const auto* right) {
    return left->record->packets > right->record->packets;
  });
  std::vector<Layer> layers;
  Layer rest{"all other PIDs", "c-rest", {}};
  Layer null{"null packets", "c-null", {}};
  for (const analysis::PidResult* pid : pids) {
    const std::vector<Step> steps = steps_of(*pid, kMega);
    if (pid->pid == analysis::kNullPid)
      null.steps = steps;
    else if (layers.size() < kColours)
      layers.push_back({label_of(report, pid->pid), "c" + std::to_string(layers.size()), steps});
    else
      add(steps, &rest);
  }
  for (Layer* layer : {&rest, &null})
    if (!layer->steps.empty()) layers.push_back(*layer);
  return layers;
}

void write_legend(Markup* out, const std::vector<Layer>& layers) {
  out->open("ul", {{"class", "legend"}});
  for (const Layer& layer : layers)
    out->open("li").open("i", {{"class", layer.colour}}).close().text(layer.name).close();
  out->close();
}

void write_pid(Markup* out, const Report& report, const analysis::PidResult& pid) {
  double most = 0;
  for (const analysis::RatePoint& point : pid.rates) most = std::max(most, point.bits);
  const auto share = static_cast<double>(pid.record->packets) /
                     static_cast<double>(std::max<std::uint64_t>(report.result.packets, 1));
  out->open("tr");
  cell(out, hex(pid.pid), "mono");
  cell(out, purpose_of(report, pid.pid));
  cell(out, grouped(pid.record->packets), "number");
  cell(out, percent(share), "number");
  cell(out, pid.rates.empty() ? "–" : rate(pid.mean_rate), "number");
  cell(out, pid.rates.empty() ? "–" : rate(most), "number");
  out->open("td");
  if (report.result.duration) draw_spark(out, steps_of(pid, 1), *report.result.duration);
  out->close();
  cell(out, pid.record->scrambled > 0 ? grouped(pid.record->scrambled) : "", "number");
  cell(out, pid.record->pcrs.empty() ? "" : grouped(pid.record->pcrs.size()), "number");
  out->close();
}

}  // namespace

void write_rates(Markup* out, const Report& report) {
  if (!report.result.duration) {
    out->leaf("p", "There is no PCR, so no time and no bit rate; the PIDs' shares are below.",
              {{"class", "soft"}});
    return;
  }
  const std::vector<Layer> layers = layers_of(report);
  out->open("figure", {{"class", "card"}});
  draw_stack(out, layers, *report.result.duration);
  write_legend(out, layers);
  out->close();
}

void write_pids(Markup* out, const Report& report) {
  open_table(out, {"PID", "Carries", "#Packets", "#Share", "#Mean", "#Highest", "Over time",
                   "#Scrambled", "#PCRs"});
  for (const analysis::PidResult& pid : report.result.pids) write_pid(out, report, pid);
  close_table(out);
}

}  // namespace report
