// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/report/markup.h"

namespace report {

struct Point {
  double x;
  double y;
};

/// A span of constant value.
struct Step {
  double begin;
  double end;
  double value;
};

/// One colour of a stack, from the bottom up.
struct Layer {
  std::string name;
  std::string colour;  // a CSS class
  std::vector<Step> steps;
};

struct Limit {
  double value;
  std::string name;
};

/// Measured points over time.
struct Scatter {
  std::string title;
  std::string unit;  // of the values
  double end;        // of time, in seconds
  std::vector<Point> points;
  std::vector<Limit> limits;
  bool symmetric = false;  // around zero; else from zero
};

/// Layers of bit rates upon each other; all have the same spans.
void draw_stack(Markup* out, const std::vector<Layer>& layers, double end);
void draw_scatter(Markup* out, const Scatter& plot);
/// A small line without axes, from zero to its own maximum.
void draw_spark(Markup* out, const std::vector<Step>& steps, double end);
/// A bar per part of the stream that has errors.
void draw_strip(Markup* out, const std::vector<unsigned>& counts, std::size_t parts);

/// Places of ticks from `from` to `to`, a 1, 2 or 5 apart; about `wanted`.
std::vector<double> ticks(double from, double to, int wanted);

}  // namespace report
