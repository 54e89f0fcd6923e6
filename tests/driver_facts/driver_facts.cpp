// SPDX-License-Identifier: LGPL-2.1-or-later
//
// Prints what the demux driver does. With the name of a file it also compares
// that with the file, line by line, and says where they differ:
//
//     driver_facts [FILE]
#include <qel/receiver.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "tests/driver_facts/facts.h"

namespace {

// Those on nodes open all that there are, and so come first.
constexpr std::array kGroups = {
    facts::nodes,
    facts::section_reading,
    facts::overflows,
    facts::matching,
    facts::crc_oneshot_timeout,
    facts::shared_pids,
    facts::damaged_packets,
    facts::feeding,
    facts::pes_taps,
    facts::pes_outputs,
    facts::pes_requests,
    facts::record_node,
    facts::threads,
    facts::clocks,
    facts::additions,
};

std::vector<std::string> read_lines(const char* name) {
  std::ifstream file(name);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  return lines;
}

int compare(const std::vector<std::string>& expected, const std::vector<std::string>& found) {
  int differences = 0;
  const std::size_t count = std::max(expected.size(), found.size());
  for (std::size_t i = 0; i < count; ++i) {
    const std::string& wanted = i < expected.size() ? expected[i] : "no further line";
    const std::string& line = i < found.size() ? found[i] : "no further line";
    if (wanted == line) continue;
    ++differences;
    std::fprintf(stderr, "line %zu\n  expected %s\n  found    %s\n", i + 1, wanted.c_str(),
                 line.c_str());
  }
  return differences;
}

}  // namespace

int main(int argc, char** argv) {
  qel_receiver_set_pacing(0, 0);
  for (const auto group : kGroups) group();
  return argc > 1 && compare(read_lines(argv[1]), facts::lines()) > 0 ? 1 : 0;
}
