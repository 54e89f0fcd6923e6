// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstddef>

namespace qel::trace {

/// Opens the file that QEL_TRACE names.
void read_environment();

// One line each, written when the call is done and before it returns. Names
// may be nullptr; a negative `result` is -errno. Called only where watched()
// says so; none changes errno.
void open(const char* name, int flags, long result);
void close(const char* name, int fd, long result);
void path(const char* name, const char* result, int error);
void control(int fd, const char* name, unsigned long request, const void* argument, long result);
void read(int fd, const char* name, std::size_t size, long result);
void marker(const char* text, std::size_t length);

}  // namespace qel::trace
