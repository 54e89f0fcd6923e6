// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tools {

/// A number as people write it, decimal or hexadecimal with 0x, from `least` to
/// `most`. Failure, which names `what`, for anything else.
unsigned parse_number(const std::string& what, const std::string& text, unsigned least,
                      unsigned most);
/// Seconds as a decimal number above 0.
double parse_seconds(const std::string& what, const std::string& text);

/// The options of one command, parsed by GOption. What the setters point at has
/// to live until parse() is through. Each option may be given again: lists grow,
/// other values are replaced.
class Options {
 public:
  /// `arguments` as the usage line shows them, `summary` as --help does.
  Options(std::string arguments, std::string summary)
      : arguments_(std::move(arguments)), summary_(std::move(summary)) {}

  Options& flag(const char* name, char letter, bool* value, const char* help);
  Options& text(const char* name, char letter, std::string* value, const char* help,
                const char* placeholder);
  Options& texts(const char* name, char letter, std::vector<std::string>* value, const char* help,
                 const char* placeholder);
  /// A language of three letters that may be left out: "--name", "--name LANG" and
  /// "--name=LANG". Set to "" where it is left out.
  Options& language(const char* name, std::optional<std::string>* value, const char* help);
  Options& number(const char* name, char letter, std::optional<unsigned>* value, unsigned least,
                  unsigned most, const char* help, const char* placeholder);
  Options& seconds(const char* name, char letter, std::optional<double>* value, const char* help);

  /// Parses; prints help and exits where that is asked for. Returns what is no
  /// option: at least `least`, at most `most` arguments.
  std::vector<std::string> parse(int argc, char** argv, std::size_t least, std::size_t most);

  /// Called by GOption's callback.
  void set(const std::string& name, const char* value) const { setters_.at(name)(value); }

 private:
  using Setter = std::function<void(const char* value)>;
  struct Row {
    const char* name;
    char letter;
    const char* help;
    const char* placeholder;  // NULL for a flag
    bool may_lack_value = false;
  };

  Options& add(const Row& row, Setter setter);
  [[nodiscard]] bool lacks_value(const std::string& word, const char* next) const;

  std::string arguments_;
  std::string summary_;
  std::vector<Row> rows_;
  std::map<std::string, Setter> setters_;  // by "--name" and "-l"
};

}  // namespace tools
