// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tests/element/journal.h"

#include <qel/trace.h>

#include <regex>
#include <utility>

namespace vantrel::testing {

Journal::Journal() { qel_trace_set_callback(on_call, this, 0); }
Journal::~Journal() { qel_trace_set_callback(nullptr, nullptr, 0); }

void Journal::note(const std::string& line) {
  std::lock_guard lock(mutex_);
  lines_.push_back(line);
}

std::vector<std::string> Journal::take() {
  std::lock_guard lock(mutex_);
  return std::exchange(lines_, {});
}

void Journal::on_call(const char* line, void* data) {
  static const std::regex kHead(R"(^\s*[0-9.]+ [0-9]+ )");
  static const std::regex kNode(R"(^(ioctl\(|open.* = |close.*, )([0-9]+)(.*)$)");
  auto* self = static_cast<Journal*>(data);
  std::string call = std::regex_replace(line, kHead, "");
  std::lock_guard lock(self->mutex_);
  if (std::smatch match; std::regex_match(call, match, kNode)) {
    std::string& number = self->numbers_[match[2]];
    if (number.empty()) number = "#" + std::to_string(self->numbers_.size());
    call = match[1].str() + number + match[3].str();
  }
  self->lines_.push_back(std::move(call));
}

}  // namespace vantrel::testing
