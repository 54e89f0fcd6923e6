// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/report/plot.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "tools/report/format.h"

namespace report {
namespace {

/// Points that a plot shows; of more, the extremes of each part.
constexpr std::size_t kMostPoints = 500;

struct Frame {
  double width;
  double height;
  double left;
  double right;
  double top;
  double bottom;
};

constexpr Frame kWide{1120, 320, 64, 14, 12, 40};
constexpr Frame kHalf{560, 210, 64, 12, 12, 38};

/// From values to places in the picture.
struct Scale {
  Frame frame;
  double end;
  double low;
  double high;

  [[nodiscard]] double x(double value) const {
    return frame.left + value / end * (frame.width - frame.left - frame.right);
  }
  [[nodiscard]] double y(double value) const {
    const double share = (value - low) / (high - low);
    return frame.height - frame.bottom - share * (frame.height - frame.top - frame.bottom);
  }
};

void open_svg(Markup* out, const Frame& frame, const std::string& label) {
  out->open("svg", {{"viewBox", "0 0 " + number(frame.width) + " " + number(frame.height)},
                    {"role", "img"},
                    {"aria-label", label},
                    {"class", "plot"}});
}

void line(Markup* out, const char* style, double x1, double y1, double x2, double y2) {
  out->empty("line", {{"class", style},
                      {"x1", number(x1)},
                      {"y1", number(y1)},
                      {"x2", number(x2)},
                      {"y2", number(y2)}});
}

void label(Markup* out, double x, double y, const std::string& text, const char* anchor,
           const char* style = "tick") {
  out->leaf("text", text,
            {{"class", style}, {"x", number(x)}, {"y", number(y)}, {"text-anchor", anchor}});
}

void draw_axes(Markup* out, const Scale& scale, const std::string& unit) {
  const Frame& frame = scale.frame;
  const double floor = frame.height - frame.bottom;
  for (const double value : ticks(scale.low, scale.high, frame.height > 250 ? 6 : 4)) {
    line(out, "grid", frame.left, scale.y(value), frame.width - frame.right, scale.y(value));
    label(out, frame.left - 7, scale.y(value) + 4, number(value), "end");
  }
  for (const double value : ticks(0, scale.end, frame.width > 800 ? 12 : 6)) {
    line(out, "axis", scale.x(value), floor, scale.x(value), floor + 4);
    label(out, scale.x(value), floor + 17, number(value), "middle");
  }
  line(out, "axis", frame.left, floor, frame.width - frame.right, floor);
  label(out, frame.width - frame.right, frame.height - 6, "time by PCR / s", "end", "unit");
  out->leaf("text", unit,
            {{"class", "unit"},
             {"text-anchor", "end"},
             {"transform", "translate(14 " + number(frame.top) + ") rotate(-90)"}});
}

void draw_limit(Markup* out, const Scale& scale, const Limit& limit) {
  const double y = scale.y(limit.value);
  line(out, "limit", scale.frame.left, y, scale.frame.width - scale.frame.right, y);
  if (!limit.name.empty())
    label(out, scale.frame.width - scale.frame.right - 4, y - 4, limit.name, "end", "limit-name");
}

std::vector<Point> thinned(const std::vector<Point>& points) {
  if (points.size() <= kMostPoints) return points;
  std::vector<Point> kept;
  const std::size_t part = (2 * points.size() + kMostPoints - 1) / kMostPoints;
  for (std::size_t begin = 0; begin < points.size(); begin += part) {
    const auto first = points.begin() + static_cast<std::ptrdiff_t>(begin);
    const auto last = first + static_cast<std::ptrdiff_t>(std::min(part, points.size() - begin));
    const auto [low, high] = std::minmax_element(
        first, last, [](const Point& left, const Point& right) { return left.y < right.y; });
    kept.push_back(*low);
    if (low != high) kept.push_back(*high);
  }
  return kept;
}

/// The outline of one layer: its upper edge, and back along its lower one.
std::string outline(const Scale& scale, const std::vector<Step>& steps,
                    const std::vector<double>& floor) {
  std::string upper;
  std::string lower;
  for (std::size_t i = 0; i < steps.size(); i++) {
    const std::string begin = number(scale.x(steps[i].begin));
    const std::string end = number(scale.x(steps[i].end));
    const std::string top = number(scale.y(floor[i] + steps[i].value));
    const std::string bottom = number(scale.y(floor[i]));
    upper += (i == 0 ? "M" : "L") + begin + " " + top + "L" + end + " " + top;
    lower.insert(0, "L" + end + " " + bottom + "L" + begin + " " + bottom);
  }
  return upper + lower + "Z";
}

double maximum(const std::vector<Step>& steps) {
  double most = 0;
  for (const Step& step : steps) most = std::max(most, step.value);
  return most;
}

Scale scale_of(const Scatter& plot) {
  double reach = 0;
  for (const Point& point : plot.points) reach = std::max(reach, std::abs(point.y));
  for (const Limit& limit : plot.limits) reach = std::max(reach, std::abs(limit.value));
  reach *= 1.15;
  return {kHalf, plot.end, plot.symmetric ? -reach : 0, reach};
}

}  // namespace

std::vector<double> ticks(double from, double to, int wanted) {
  const double rough = std::max(to - from, 1e-12) / wanted;
  const double decade = std::pow(10, std::floor(std::log10(rough)));
  double step = 10 * decade;
  for (const double factor : {5.0, 2.0, 1.0})
    if (factor * decade >= rough) step = factor * decade;
  std::vector<double> places;
  for (double at = std::ceil(from / step); at * step <= to * (1 + 1e-9); at++)
    places.push_back(at * step);
  return places;
}

void draw_stack(Markup* out, const std::vector<Layer>& layers, double end) {
  std::vector<double> floor(layers.front().steps.size());
  for (const Layer& layer : layers)
    for (std::size_t i = 0; i < floor.size(); i++) floor[i] += layer.steps[i].value;
  const double most = *std::max_element(floor.begin(), floor.end());
  const Scale scale{kWide, end, 0, most * 1.05};
  open_svg(out, kWide, "Bit rate over time");
  draw_axes(out, scale, "bit rate / Mbit/s");
  std::fill(floor.begin(), floor.end(), 0);
  for (const Layer& layer : layers) {
    out->open("path",
              {{"class", "area " + layer.colour}, {"d", outline(scale, layer.steps, floor)}})
        .leaf("title", layer.name)
        .close();
    for (std::size_t i = 0; i < floor.size(); i++) floor[i] += layer.steps[i].value;
  }
  out->close();
}

void draw_scatter(Markup* out, const Scatter& plot) {
  const Scale scale = scale_of(plot);
  open_svg(out, kHalf, plot.title);
  draw_axes(out, scale, plot.unit);
  for (const Limit& limit : plot.limits) draw_limit(out, scale, limit);
  std::string dots;
  for (const Point& point : thinned(plot.points))
    dots += "M" + number(scale.x(point.x)) + " " + number(scale.y(point.y)) + "h0";
  out->empty("path", {{"class", "dots"}, {"d", dots}}).close();
}

void draw_spark(Markup* out, const std::vector<Step>& steps, double end) {
  constexpr double kWidth = 150;
  constexpr double kHeight = 24;
  const double most = maximum(steps);
  out->open("svg", {{"viewBox", "0 0 150 24"}, {"class", "spark"}, {"aria-hidden", "true"}});
  std::string path;
  for (const Step& step : steps) {
    const std::string y = number(kHeight - 1 - (most > 0 ? step.value / most : 0) * (kHeight - 3));
    path += (path.empty() ? "M" : "L") + number(step.begin / end * kWidth) + " " + y + "L" +
            number(step.end / end * kWidth) + " " + y;
  }
  if (!path.empty()) out->empty("path", {{"d", path}});
  out->close();
}

void draw_strip(Markup* out, const std::vector<unsigned>& counts, std::size_t parts) {
  out->open("svg", {{"viewBox", "0 0 " + number(static_cast<double>(parts)) + " 10"},
                    {"preserveAspectRatio", "none"},
                    {"class", "strip"},
                    {"aria-hidden", "true"}});
  std::string path;
  for (std::size_t i = 0; i < counts.size(); i++)
    if (counts[i] > 0) path += "M" + number(static_cast<double>(i)) + " 0h1v10h-1z";
  if (!path.empty()) out->empty("path", {{"d", path}});
  out->close();
}

}  // namespace report
