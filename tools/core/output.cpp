// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/core/output.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tools/core/failure.h"

namespace tools {

void refuse_to_overwrite(const std::string& path, bool force) {
  if (!force && access(path.c_str(), F_OK) == 0)
    throw Failure(Status::kNoOutput, path + ": is there already (--force overwrites)");
}

Output::Output(std::string path, bool force) : path_(std::move(path)) {
  if (is_standard_output()) {
    if (isatty(STDOUT_FILENO) != 0)
      throw Failure(Status::kNoOutput, "packets are nothing for a terminal; name a file or a pipe");
    file_.reset(stdout);
    return;
  }
  if (!force) {
    file_.reset(std::fopen(path_.c_str(), "wxe"));
    if (file_ == nullptr && errno == EEXIST) refuse_to_overwrite(path_, false);
  } else {
    file_.reset(std::fopen(path_.c_str(), "we"));
  }
  if (file_ == nullptr)
    throw Failure(Status::kNoOutput, path_ + ": " + std::strerror(errno));
}

void Output::write(std::string_view bytes) {
  if (closed_) return;
  if (std::fwrite(bytes.data(), 1, bytes.size(), file_.get()) != bytes.size()) return fail();
  bytes_ += bytes.size();
}

void Output::finish() {
  if (!closed_ && std::fflush(file_.get()) != 0) fail();
}

Output::~Output() {
  if (file_ != nullptr && bytes_ == 0 && !is_standard_output()) unlink(path_.c_str());
}

void Output::fail() {
  closed_ = true;
  if (errno != EPIPE)
    throw Failure(Status::kNoOutput, path_ + ": " + std::strerror(errno) + " after " +
                                         std::to_string(bytes_) + " bytes");
}

}  // namespace tools
