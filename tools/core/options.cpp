// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/core/options.h"

#include <gst/gst.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>

#include "tools/core/failure.h"

namespace tools {
namespace {

gboolean on_option(const gchar* name, const gchar* value, gpointer options, GError** error) {
  try {
    static_cast<const Options*>(options)->set(name, value);
    return TRUE;
  } catch (const Failure& failure) {
    g_set_error_literal(error, G_OPTION_ERROR, G_OPTION_ERROR_BAD_VALUE, failure.what());
    return FALSE;
  }
}

bool is_language(std::string_view text) {
  return text.size() == 3 &&
         std::all_of(text.begin(), text.end(), [](char c) { return g_ascii_isalpha(c); });
}

std::string in_quotes(const std::string& text) { return '"' + text + '"'; }

}  // namespace

unsigned parse_number(const std::string& what, const std::string& text, unsigned least,
                      unsigned most) {
  const bool hex = text.starts_with("0x") || text.starts_with("0X");
  guint64 value = 0;
  if (!g_ascii_string_to_unsigned(hex ? text.c_str() + 2 : text.c_str(), hex ? 16 : 10, least, most,
                                  &value, nullptr))
    throw Failure(Status::kUsage, what + ": " + in_quotes(text) + " is no number from " +
                                      std::to_string(least) + " to " + std::to_string(most) +
                                      " (decimal, or hexadecimal with 0x)");
  return static_cast<unsigned>(value);
}

double parse_seconds(const std::string& what, const std::string& text) {
  gchar* end = nullptr;
  const double value = g_ascii_strtod(text.c_str(), &end);
  if (text.empty() || *end != '\0' || !(value > 0) || value > 1e9)
    throw Failure(Status::kUsage,
                  what + ": " + in_quotes(text) + " is no number of seconds above 0");
  return value;
}

Options& Options::add(const Row& row, Setter setter) {
  rows_.push_back(row);
  setters_[std::string("--") + row.name] = setter;
  if (row.letter != 0) setters_[std::string("-") + row.letter] = std::move(setter);
  return *this;
}

Options& Options::flag(const char* name, char letter, bool* value, const char* help) {
  return add({name, letter, help, nullptr}, [value](const char*) { *value = true; });
}

Options& Options::text(const char* name, char letter, std::string* value, const char* help,
                       const char* placeholder) {
  return add({name, letter, help, placeholder}, [value](const char* text) { *value = text; });
}

Options& Options::texts(const char* name, char letter, std::vector<std::string>* value,
                        const char* help, const char* placeholder) {
  return add({name, letter, help, placeholder},
             [value](const char* text) { value->emplace_back(text); });
}

Options& Options::language(const char* name, std::optional<std::string>* value, const char* help) {
  return add({name, 0, help, "[LANG]", true}, [=](const char* text) {
    if (*text != '\0' && !is_language(text))
      throw Failure(Status::kUsage, std::string("--") + name + ": " + in_quotes(text) +
                                        " is no language of three letters, as in eng");
    *value = text;
  });
}

/// An option that may stand alone and does: GOption would take the input for its
/// value.
bool Options::lacks_value(const std::string& word, const char* next) const {
  const auto row = std::find_if(rows_.begin(), rows_.end(), [&](const Row& each) {
    return each.may_lack_value && word == std::string("--") + each.name;
  });
  return row != rows_.end() && (next == nullptr || !is_language(next));
}

Options& Options::number(const char* name, char letter, std::optional<unsigned>* value,
                         unsigned least, unsigned most, const char* help, const char* placeholder) {
  return add({name, letter, help, placeholder}, [=](const char* text) {
    *value = parse_number(std::string("--") + name, text, least, most);
  });
}

Options& Options::seconds(const char* name, char letter, std::optional<double>* value,
                          const char* help) {
  return add({name, letter, help, "SECONDS"},
             [=](const char* text) { *value = parse_seconds(std::string("--") + name, text); });
}

std::vector<std::string> Options::parse(int argc, char** argv, std::size_t least,
                                        std::size_t most) {
  std::vector<GOptionEntry> entries;
  // Values stay as they are: paths and names of services are no text of the locale.
  for (const Row& row : rows_)
    entries.push_back({row.name, row.letter,
                       row.placeholder == nullptr ? G_OPTION_FLAG_NO_ARG : G_OPTION_FLAG_FILENAME,
                       G_OPTION_ARG_CALLBACK, reinterpret_cast<gpointer>(on_option), row.help,
                       row.placeholder});
  entries.push_back({});
  std::vector<std::string> words;
  for (int i = 0; i < argc; i++)
    words.push_back(argv[i] + std::string(lacks_value(argv[i], i + 1 < argc ? argv[i + 1] : nullptr)
                                              ? "="
                                              : ""));
  std::vector<char*> pointers;
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  argv = pointers.data();
  GOptionContext* context = g_option_context_new(arguments_.c_str());
  g_option_context_set_summary(context, summary_.c_str());
  GOptionGroup* group = g_option_group_new("main", "", "", this, nullptr);
  g_option_group_add_entries(group, entries.data());
  g_option_context_set_main_group(context, group);
  g_option_context_add_group(context, gst_init_get_option_group());
  g_autoptr(GError) error = nullptr;
  const bool parsed = g_option_context_parse(context, &argc, &argv, &error) != FALSE;
  g_option_context_free(context);
  if (!parsed) throw Failure(Status::kUsage, std::string(error->message) + " (try --help)");
  // "--" ends the options and stays where it was.
  std::vector<std::string> rest;
  for (int i = 1; i < argc; i++)
    if (i > 1 || std::string(argv[i]) != "--") rest.emplace_back(argv[i]);
  if (rest.size() < least) throw Failure(Status::kUsage, "needs " + arguments_ + " (try --help)");
  if (rest.size() > most)
    throw Failure(Status::kUsage, "too many arguments: " + in_quotes(rest[most]) + " (try --help)");
  return rest;
}

}  // namespace tools
