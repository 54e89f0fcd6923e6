// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/core/json.h"

#include <cstdio>

namespace tools {

void Json::name(const char* name) {
  if (name != nullptr) json_builder_set_member_name(builder_, name);
}

Json& Json::object(const char* member) {
  name(member);
  json_builder_begin_object(builder_);
  return *this;
}

Json& Json::end_object() {
  json_builder_end_object(builder_);
  return *this;
}

Json& Json::array(const char* member) {
  name(member);
  json_builder_begin_array(builder_);
  return *this;
}

Json& Json::end_array() {
  json_builder_end_array(builder_);
  return *this;
}

Json& Json::text(const char* member, const std::string& value) {
  name(member);
  g_autofree gchar* valid = g_utf8_make_valid(value.data(), static_cast<gssize>(value.size()));
  json_builder_add_string_value(builder_, valid);
  return *this;
}

Json& Json::text_if(const char* member, const std::string& value) {
  return value.empty() ? *this : text(member, value);
}

Json& Json::flag(const char* member, bool value) {
  name(member);
  json_builder_add_boolean_value(builder_, value ? TRUE : FALSE);
  return *this;
}

Json& Json::real(const char* member, double value) {
  name(member);
  json_builder_add_double_value(builder_, value);
  return *this;
}

Json& Json::integer(const char* member, gint64 value) {
  name(member);
  json_builder_add_int_value(builder_, value);
  return *this;
}

void Json::print(bool one_line) const {
  g_autoptr(JsonNode) root = json_builder_get_root(builder_);
  g_autofree gchar* text = json_to_string(root, one_line ? FALSE : TRUE);
  std::printf("%s\n", text);
  // Who follows a live stream waits for each line.
  if (one_line) std::fflush(stdout);
}

}  // namespace tools
