// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <stdexcept>
#include <string>

namespace tools {

/// How a command ends; the manual page lists them.
enum class Status {
  kDone = 0,
  kFailed = 1,       // a pipeline or a decoder failed
  kUsage = 2,        // unknown command or option, wrong number
  kNoInput = 3,      // the input cannot be read, or sends nothing
  kNoStream = 4,     // the input is no transport stream
  kNotFound = 5,     // a service, PID or table that is not there
  kScrambled = 6,    // what was asked for is scrambled
  kNoOutput = 7,     // the output exists or cannot be written
};

/// Ends a command: one line for standard error that names the mistake and the
/// way out, and the status.
class Failure : public std::runtime_error {
 public:
  Failure(Status status, const std::string& text) : std::runtime_error(text), status_(status) {}
  [[nodiscard]] Status status() const { return status_; }

 private:
  Status status_;
};

}  // namespace tools
