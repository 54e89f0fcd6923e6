// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <json-glib/json-glib.h>

#include <concepts>
#include <optional>
#include <string>

namespace tools {

/// Builds one JSON value; names are given inside objects only.
class Json {
 public:
  Json() : builder_(json_builder_new()) {}
  ~Json() { g_object_unref(builder_); }
  Json(const Json&) = delete;
  Json& operator=(const Json&) = delete;

  Json& object(const char* name = nullptr);
  Json& end_object();
  Json& array(const char* name = nullptr);
  Json& end_array();

  /// Text that is not UTF-8 is repaired: what broadcasters send is not always
  /// what it says it is.
  Json& text(const char* name, const std::string& value);
  /// The same, left out when empty.
  Json& text_if(const char* name, const std::string& value);
  Json& flag(const char* name, bool value);
  Json& real(const char* name, double value);
  Json& number(const char* name, std::integral auto value) {
    return integer(name, static_cast<gint64>(value));
  }
  template <typename Number>
  Json& number_if(const char* name, const std::optional<Number>& value) {
    return value ? number(name, *value) : *this;
  }
  /// `add` makes one element of each item.
  template <typename Items, typename Add>
  Json& list(const char* name, const Items& items, Add&& add) {
    array(name);
    for (const auto& item : items) {
      object();
      add(item);
      end_object();
    }
    return end_array();
  }

  /// Writes it to standard output with a newline: over several lines for a
  /// whole report, in one where many follow one another.
  void print(bool one_line = false) const;

 private:
  Json& integer(const char* name, gint64 value);
  void name(const char* name);

  JsonBuilder* builder_;
};

}  // namespace tools
