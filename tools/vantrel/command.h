// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <span>

namespace tools {

/// A command: `argv[0]` is "vantrel NAME". Ends by a Failure or returns.
struct Command {
  const char* name;
  const char* summary;  // one line
  void (*run)(int argc, char** argv);
};

void run_epg(int argc, char** argv);
void run_monitor(int argc, char** argv);
void run_pes(int argc, char** argv);
void run_ports(int argc, char** argv);
void run_record(int argc, char** argv);
void run_report(int argc, char** argv);
void run_scan(int argc, char** argv);
void run_sections(int argc, char** argv);
void run_temi(int argc, char** argv);
void run_test_stream(int argc, char** argv);
void run_watch(int argc, char** argv);

}  // namespace tools
