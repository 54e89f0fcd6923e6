// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gst/gst.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <numeric>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/core/failure.h"
#include "tools/core/input.h"
#include "tools/core/json.h"
#include "tools/core/output.h"
#include "tools/vantrel/command.h"
#include "tools/vantrel/version.h"

namespace tools {
namespace {

constexpr auto kCommands = std::to_array<Command>({
    {"scan", "Lists services, their streams and what each PID takes", run_scan},
    {"watch", "Plays a service in a window, or takes a picture of it", run_watch},
    {"record", "Records services, PIDs or everything", run_record},
    {"epg", "Prints the programme guide", run_epg},
    {"sections", "Prints sections that pass a filter, or counts them", run_sections},
    {"pes", "Prints subtitle and teletext packets", run_pes},
    {"ports", "Counts what a service brings to its decoders", run_ports},
    {"temi", "Prints TEMI time lines", run_temi},
    {"monitor", "Shows the receiver's counters live", run_monitor},
    {"report", "Writes a page about a stream and what is wrong with it", run_report},
    {"test-stream", "Makes a transport stream to try things with", run_test_stream},
});

void print_help() {
  std::printf(
      "Usage: vantrel COMMAND [OPTION...] INPUT\n\n"
      "A television receiver for the command line. INPUT is a transport stream: a file,\n"
      "- for standard input, or a URI such as udp://239.0.0.1:5000.\n\nCommands:\n");
  for (const Command& command : kCommands)
    std::printf("  %-12s %s\n", command.name, command.summary);
  std::printf("\n\"vantrel COMMAND --help\" tells more; so does \"man vantrel\".\n");
}

/// Insertions, deletions and replacements that lead from one to the other.
std::size_t distance(std::string_view from, std::string_view to) {
  std::vector<std::size_t> row(to.size() + 1);
  std::iota(row.begin(), row.end(), 0U);
  for (std::size_t i = 1; i <= from.size(); i++) {
    std::size_t diagonal = std::exchange(row[0], i);
    for (std::size_t j = 1; j <= to.size(); j++) {
      const std::size_t replaced = diagonal + (from[i - 1] == to[j - 1] ? 0 : 1);
      diagonal = row[j];
      row[j] = std::min({replaced, row[j] + 1, row[j - 1] + 1});
    }
  }
  return row.back();
}

const Command& find_command(const std::string& name) {
  for (const Command& command : kCommands)
    if (name == command.name) return command;
  const auto nearest =
      std::min_element(kCommands.begin(), kCommands.end(), [&](const auto& a, const auto& b) {
        return distance(name, a.name) < distance(name, b.name);
      });
  const bool near = distance(name, nearest->name) <= std::max<std::size_t>(2, name.size() / 2);
  throw Failure(Status::kUsage, "there is no command \"" + name + "\"" +
                                    (near ? std::string("; is it \"") + nearest->name + "\"?"
                                          : "; \"vantrel --help\" lists them"));
}

bool is_one_of(std::string_view word, std::initializer_list<std::string_view> words) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

void run(int argc, char** argv) {
  if (argc < 2) throw Failure(Status::kUsage, "which command? \"vantrel --help\" lists them");
  const std::string name = argv[1];
  if (name == "help" && argc > 2) {
    std::array<std::string, 3> words = {argv[0], argv[2], "--help"};
    std::array<char*, 3> help = {words[0].data(), words[1].data(), words[2].data()};
    return run(static_cast<int>(help.size()), help.data());
  }
  if (is_one_of(name, {"--help", "-h", "-?", "help"})) return print_help();
  if (is_one_of(name, {"--version", "-V"})) {
    std::printf("vantrel %s\n", VANTREL_VERSION);
    return;
  }
  const Command& command = find_command(name);
  std::string program = "vantrel " + name;
  g_set_prgname(program.c_str());
  argv[1] = program.data();
  command.run(argc - 1, argv + 1);
}

/// Before the options are known, or where they are wrong, too.
bool wants_json(int argc, char** argv) {
  const std::vector<std::string_view> words(argv, argv + argc);
  const auto end = std::find(words.begin(), words.end(), "--");
  return std::find(words.begin(), end, "--json") != end;
}

/// Says why a command failed, on standard output too where JSON is read there.
int tell(const Failure& failure, bool as_json) {
  if (as_json)
    Json()
        .object()
        .text("error", failure.what())
        .number("status", static_cast<int>(failure.status()))
        .end_object()
        .print(true);
  std::fflush(stdout);
  const char* program = g_get_prgname();
  std::fprintf(stderr, "%s: %s\n", program != nullptr ? program : "vantrel", failure.what());
  return static_cast<int>(failure.status());
}

/// What had not been found when a signal came might have come later.
int end_by_signal(bool as_json) {
  if (as_json) Json().object().text("end", "signal").end_object().print(true);
  return static_cast<int>(Status::kDone);
}

}  // namespace
}  // namespace tools

int main(int argc, char** argv) {
  tools::open_standard_files();
  tools::catch_signals();
  const bool as_json = tools::wants_json(argc, argv);
  try {
    tools::run(argc, argv);
    tools::finish_standard_output();
    return 0;
  } catch (const tools::Failure& failure) {
    if (tools::interrupted() && failure.status() == tools::Status::kNotFound)
      return tools::end_by_signal(as_json);
    return tools::tell(failure, as_json);
  }
}
