// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/element/refusals.h"
#include "tests/element/stage.h"

/// Log lines and requests are an interface: every operation's are written down
/// in transcripts/, scenario by scenario. "$" begins a command of Stage, "%" one
/// whose outcome another scenario shows, "#" a comment, "==" a scenario. A title
/// that ends in "!" says that each request shown fails in turn too: behind "!"
/// follows what comes then ("+") and no longer comes ("-").
///
/// With VANTREL_WRITE_TRANSCRIPTS set the files are written anew: read what git
/// shows of it before you believe it.
namespace vantrel::testing {
namespace {

using Lines = std::vector<std::string>;

/// Begins a line that is not shown.
constexpr char kHidden = '\t';

bool is_command(const std::string& line) {
  return line.starts_with("$ ") || line.starts_with("% ");
}

bool is_input(const std::string& line) {
  return is_command(line) || line.starts_with("#") || line.starts_with("== ");
}

std::string joined(const Lines& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

/// The scenarios of a file, their lines without the empty ones.
std::vector<Lines> read_scenarios(const std::filesystem::path& path) {
  std::vector<Lines> scenarios;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with("== ")) scenarios.emplace_back();
    if (!line.empty()) scenarios.back().push_back(line);
  }
  return scenarios;
}

/// What the scenario's commands lead to, with the commands in between.
Lines perform(const Lines& scenario, const std::string& fault) {
  Lines lines;
  Stage stage;
  if (!fault.empty()) stage.run("fault " + fault);
  for (const std::string& line : scenario) {
    if (is_input(line)) lines.push_back(line);
    if (!is_command(line)) continue;
    for (const std::string& result : stage.run(line.substr(2)))
      lines.push_back((line[0] == '%' ? std::string(1, kHidden) : "") + result);
  }
  return lines;
}

/// "NODE CALL", if the line is a call that faults can hit.
std::string faultable_call(const std::string& shown) {
  const std::string line = shown.substr(shown[0] == kHidden ? 1 : 0);
  const bool opens = line.starts_with("open(\"");
  if (!opens && !line.starts_with("ioctl(<")) return "";
  const std::size_t node = opens ? 6 : 7;
  const std::string name = line.substr(node, line.find_first_of("\">", node) - node);
  if (opens) return name + " open";
  const std::size_t request = line.find(", ") + 2;
  return name + " " + line.substr(request, line.find_first_of(",)", request) - request);
}

/// The same call with another result.
bool is_other_result(const std::string& line, const std::string& other) {
  return line.find(") = ") != line.npos && other.starts_with(line.substr(0, line.find(") = ") + 4));
}

/// Lines of `after` that `before` has not, as "+", and the reverse, as "-". For
/// a call with another result the new one.
Lines difference(const Lines& before, const Lines& after) {
  const std::size_t rows = before.size();
  const std::size_t columns = after.size();
  std::vector<std::vector<int>> common(rows + 1, std::vector<int>(columns + 1));
  for (std::size_t i = rows; i-- > 0;)
    for (std::size_t j = columns; j-- > 0;)
      common[i][j] = before[i] == after[j] ? common[i + 1][j + 1] + 1
                                           : std::max(common[i + 1][j], common[i][j + 1]);
  Lines lines;
  for (std::size_t i = 0, j = 0; i < rows || j < columns;) {
    if (i < rows && j < columns && before[i] == after[j]) {
      i++, j++;
    } else if (i < rows && j < columns && is_other_result(before[i], after[j])) {
      lines.push_back("+ " + after[j++]);
      i++;
    } else if (i < rows && (j == columns || common[i + 1][j] >= common[i][j + 1])) {
      lines.push_back("- " + before[i++]);
    } else {
      lines.push_back("+ " + after[j++]);
    }
  }
  return lines;
}

void erase_hidden(Lines* lines) {
  std::erase_if(*lines, [](const std::string& line) { return line[0] == kHidden; });
}

/// What changes when one request after the other fails.
Lines perform_with_each_fault(const Lines& scenario, const Lines& performed) {
  Lines lines;
  Lines clean = performed;
  erase_hidden(&clean);
  std::map<std::string, int> counts;
  for (const std::string& line : performed) {
    const std::string call = faultable_call(line);
    if (call.empty()) continue;
    const std::string fault = call + " " + std::to_string(++counts[call]) + " EIO";
    if (line[0] == kHidden) continue;
    lines.push_back("! " + fault);
    Lines faulty = perform(scenario, fault);
    erase_hidden(&faulty);
    const Lines changed = difference(clean, faulty);
    lines.insert(lines.end(), changed.begin(), changed.end());
  }
  return lines;
}

Lines transcript_of(const Lines& scenario) {
  Lines lines = perform(scenario, "");
  if (scenario.front().ends_with("!")) {
    const Lines faulty = perform_with_each_fault(scenario, lines);
    lines.insert(lines.end(), faulty.begin(), faulty.end());
  }
  erase_hidden(&lines);
  return lines;
}

void check_file(const char* name) {
  const std::filesystem::path path = std::filesystem::path(VANTREL_TRANSCRIPTS) / name;
  const bool write = std::getenv("VANTREL_WRITE_TRANSCRIPTS") != nullptr;
  const std::size_t descriptors = open_descriptors();
  const auto scenarios = read_scenarios(path);
  EXPECT_FALSE(scenarios.empty()) << path;
  std::string text;
  for (const Lines& scenario : scenarios) {
    SCOPED_TRACE(scenario.front());
    const std::string transcript = joined(transcript_of(scenario));
    text += (text.empty() ? "" : "\n") + transcript;
    if (!write) {
      EXPECT_EQ(joined(scenario), transcript);
    }
    EXPECT_EQ(open_nodes(0), 0);
    EXPECT_EQ(semaphore_sets(), 0U);
    EXPECT_EQ(open_descriptors(), descriptors);
  }
  if (write) std::ofstream(path) << text;
}

TEST(Transcript, OfRegistrationAndLifecycle) { check_file("lifecycle.txt"); }
TEST(Transcript, OfPids) { check_file("pids.txt"); }
TEST(Transcript, OfOtherProperties) { check_file("properties.txt"); }
TEST(Transcript, OfStreams) { check_file("streams.txt"); }
TEST(Transcript, OfSectionFilters) { check_file("sections.txt"); }
TEST(Transcript, OfEvents) { check_file("events.txt"); }

}  // namespace
}  // namespace vantrel::testing
