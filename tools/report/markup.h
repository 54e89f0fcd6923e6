// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace report {

/// An attribute; left out where the value is empty.
struct Attribute {
  const char* name;
  std::string value;
};
using Attributes = std::initializer_list<Attribute>;

/// Builds HTML and SVG. The only place that escapes: whatever a stream says goes
/// through text() or an attribute.
class Markup {
 public:
  Markup& open(const char* tag, Attributes attributes = {});
  Markup& close();
  /// An element without content, as HTML's void elements and SVG's shapes.
  Markup& empty(const char* tag, Attributes attributes = {});
  Markup& text(std::string_view text);
  /// An element with nothing but text.
  Markup& leaf(const char* tag, std::string_view content, Attributes attributes = {});
  /// Our own style sheet, script and entities, as they stand.
  Markup& raw(std::string_view ours);

  [[nodiscard]] const std::string& str() const { return out_; }

 private:
  void start(const char* tag, Attributes attributes);
  void escape(std::string_view text);

  std::string out_;
  std::vector<const char*> open_;
};

}  // namespace report
