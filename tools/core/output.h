// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

namespace tools {

/// Refuses a file that is there already, unless `force`, or whose folder is not: before
/// the work is done rather than after it.
void refuse_to_overwrite(const std::string& path, bool force);

/// Refuses to write to the file that is read, which --force would destroy.
void refuse_to_write_input(const std::string& input, const std::string& output);

/// Opens what the caller closed of standard input, output and error, so that no
/// other file gets their number; to read and to write these fails as before.
void open_standard_files();

/// Failure where something printed could not be written; where the reader of a
/// pipe has gone, that is none.
void finish_standard_output();

/// A file that a command writes, or standard output for "-".
class Output {
 public:
  /// Failure where the file exists (unless `force`) or cannot be written.
  Output(std::string path, bool force);
  /// Nothing is left of a file that nothing was written to.
  ~Output();
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  /// Failure when the disk is full and the like. After the reader of a pipe has
  /// gone nothing is written, and that is no failure.
  void write(std::string_view bytes);
  /// Failure where what was written last does not fit.
  void finish();

  [[nodiscard]] bool is_closed() const { return closed_; }
  [[nodiscard]] bool is_standard_output() const { return path_ == "-"; }
  [[nodiscard]] std::uint64_t bytes() const { return bytes_; }
  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  struct Close {
    void operator()(std::FILE* file) const {
      if (file != stdout) std::fclose(file);
    }
  };

  void fail();

  std::string path_;
  std::unique_ptr<std::FILE, Close> file_;
  bool closed_ = false;
  std::uint64_t bytes_ = 0;
};

}  // namespace tools
