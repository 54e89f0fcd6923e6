// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "tools/analysis/evaluate.h"
#include "tools/core/epg.h"
#include "tools/core/psi.h"

namespace report {

/// A picture of a service, or why there is none.
struct Snapshot {
  std::string png;
  int width = 0;  // as shown, with square pixels
  int height = 0;
  std::string reason;
};

/// Everything that is known of a file.
struct Report {
  std::string file;
  std::uint64_t size = 0;  // bytes
  const tools::Psi* psi = nullptr;
  std::map<tools::ServiceKey, tools::Guide> guides;
  analysis::Result result;
  std::map<unsigned, Snapshot> snapshots;  // by programme number
};

/// A page without anything outside itself.
std::string page_of(const Report& report);
/// The same as JSON, to standard output.
void print_json(const Report& report);

}  // namespace report
