// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/core/output.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "tools/core/failure.h"

namespace tools {

void refuse_to_overwrite(const std::string& path, bool force) {
  if (!force && access(path.c_str(), F_OK) == 0)
    throw Failure(Status::kNoOutput, path + ": is there already (--force overwrites)");
  const std::string folder = std::filesystem::path(path).parent_path();
  if (access(folder.empty() ? "." : folder.c_str(), X_OK) < 0)
    throw Failure(Status::kNoOutput, path + ": " + std::strerror(errno));
}

void refuse_to_write_input(const std::string& input, const std::string& output) {
  std::error_code code;
  if (std::filesystem::is_regular_file(output, code) &&
      std::filesystem::equivalent(input, output, code))
    throw Failure(Status::kNoOutput, output + ": is the input; name another file");
}

void open_standard_files() {
  for (const int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    if (fcntl(number, F_GETFD) < 0)
      // The first number that is free is this one; it stays open.
      static_cast<void>(open("/dev/null", number == STDIN_FILENO ? O_WRONLY : O_RDONLY));
}

void finish_standard_output() {
  errno = 0;
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return;
  const int reason = errno;
  pollfd reader = {STDOUT_FILENO, 0, 0};
  if (reason == EPIPE || (poll(&reader, 1, 0) > 0 && (reader.revents & POLLERR) != 0)) return;
  throw Failure(Status::kNoOutput, std::string("standard output: ") +
                                       (reason != 0 ? std::strerror(reason) : "cannot be written"));
}

Output::Output(std::string path, bool force) : path_(std::move(path)) {
  if (is_standard_output()) {
    if (isatty(STDOUT_FILENO) != 0)
      throw Failure(Status::kNoOutput, "bytes are nothing for a terminal; name a file or a pipe");
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
  const std::size_t written = std::fwrite(bytes.data(), 1, bytes.size(), file_.get());
  bytes_ += written;
  if (written != bytes.size()) fail();
}

void Output::finish() {
  if (!closed_ && std::fflush(file_.get()) != 0) fail();
}

Output::~Output() {
  std::error_code code;  // pipes and devices are not this command's to remove
  if (file_ != nullptr && bytes_ == 0 && !is_standard_output() &&
      std::filesystem::is_regular_file(path_, code))
    unlink(path_.c_str());
}

void Output::fail() {
  closed_ = true;
  if (errno != EPIPE)
    throw Failure(Status::kNoOutput, path_ + ": " + std::strerror(errno) + " after " +
                                         std::to_string(bytes_) + " bytes");
}

}  // namespace tools
