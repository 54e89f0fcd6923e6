// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "tools/report/markup.h"
#include "tools/report/report.h"

// The sections of the page, in files of their own.
namespace report {

void write_summary(Markup* out, const Report& report);
void write_services(Markup* out, const Report& report);
void write_checks(Markup* out, const Report& report);
void write_rates(Markup* out, const Report& report);
void write_clocks(Markup* out, const Report& report);
void write_pids(Markup* out, const Report& report);
void write_tables(Markup* out, const Report& report);
void write_guide(Markup* out, const Report& report);
void write_method(Markup* out, const Report& report);

/// What a PID is for: its service and stream, or its table; "" when nothing says.
std::string purpose_of(const Report& report, unsigned pid);

/// A table with its heading row; columns that begin with '#' hold numbers.
void open_table(Markup* out, std::initializer_list<const char*> columns);
void close_table(Markup* out);
void cell(Markup* out, const std::string& text, const char* style = "");

}  // namespace report
