// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/node_manager/fault_script.h"

#include <charconv>
#include <optional>
#include <system_error>

#include "platform/node_manager/errno_name.h"
#include "platform/node_manager/requests.h"

namespace qel {
namespace {

constexpr std::string_view kSpace = " \t\r";

/// Takes the next line, or word, off the front of `text`.
std::string_view take_line(std::string_view& text) {
  const std::size_t end = text.find('\n');
  const std::string_view line = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return line.substr(0, line.find('#'));
}

std::string_view take_word(std::string_view& line) {
  line.remove_prefix(std::min(line.find_first_not_of(kSpace), line.size()));
  const std::string_view word = line.substr(0, line.find_first_of(kSpace));
  line.remove_prefix(word.size());
  return word;
}

/// A decimal number above 0.
std::optional<std::uint64_t> parse_number(std::string_view text) {
  std::uint64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc{} || end != text.data() + text.size() || value == 0) return std::nullopt;
  return value;
}

/// "3", "2-4", "2-" or "*".
bool parse_which(std::string_view text, FaultRule& rule) {
  if (text == "*") return true;
  const std::size_t dash = text.find('-');
  const auto first = parse_number(text.substr(0, dash));
  if (!first) return false;
  rule.first = *first;
  if (dash == std::string_view::npos) {
    rule.last = *first;
    return true;
  }
  const std::string_view rest = text.substr(dash + 1);
  if (rest.empty()) return true;
  const auto last = parse_number(rest);
  if (!last || *last < *first) return false;
  rule.last = *last;
  return true;
}

/// An errno's name; for a read "short=N"; where there is a node, "overflow".
bool parse_effect(std::string_view text, FaultRule& rule) {
  constexpr std::string_view kShort = "short=";
  if (text.starts_with(kShort)) {
    const auto limit = parse_number(text.substr(kShort.size()));
    rule.effect.limit = limit.value_or(0);
    return limit && rule.call == "read";
  }
  if (text == "overflow") {
    rule.effect.overflow = true;
    return rule.call != "open";
  }
  rule.effect.error = errno_value(text);
  return rule.effect.error != 0;
}

bool is_call(std::string_view name) {
  return name == "open" || name == "read" || find_request(name) != nullptr;
}

bool parse_rule(std::string_view line, FaultRule& rule) {
  rule.node = take_word(line);
  rule.call = take_word(line);
  const std::string_view which = take_word(line);
  const std::string_view effect = take_word(line);
  return is_call(rule.call) && parse_which(which, rule) && parse_effect(effect, rule) &&
         take_word(line).empty();
}

}  // namespace

int parse_fault_script(std::string_view script, std::vector<FaultRule>& rules) {
  std::vector<FaultRule> parsed;
  for (int number = 1; !script.empty(); ++number) {
    const std::string_view line = take_line(script);
    if (line.find_first_not_of(kSpace) == std::string_view::npos) continue;
    if (!parse_rule(line, parsed.emplace_back())) return number;
  }
  rules = std::move(parsed);
  return 0;
}

}  // namespace qel
