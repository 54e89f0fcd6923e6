// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/report/report.h"

#include <optional>
#include <string>

#include "tools/core/failure.h"
#include "tools/core/input.h"
#include "tools/core/options.h"
#include "tools/core/output.h"
#include "tools/report/gather.h"
#include "tools/vantrel/command.h"

namespace tools {
namespace {

/// How long a live stream is read: the longest interval a table may have.
constexpr double kReportSeconds = 30;

struct ReportOptions {
  std::string output;
  bool json = false;
  bool force = false;
  bool no_pictures = false;
  std::optional<double> seconds;
};

/// Before the work begins.
void check_output(const ReportOptions& options) {
  if (options.output.empty() && !options.json)
    throw Failure(Status::kUsage, "where to? -o PAGE.html, or --json for standard output");
  if (options.json && options.output == "-")
    throw Failure(Status::kUsage, "--json and the page cannot both go to standard output");
  if (options.output != "-") refuse_to_overwrite(options.output, options.force);
}

void write_page(const std::string& path, bool force, const std::string& page) {
  Output output(path, force);
  output.write(page);
  output.finish();
}

}  // namespace

void run_report(int argc, char** argv) {
  ReportOptions options;
  const auto arguments =
      Options("INPUT",
              "Examines every packet of a transport stream and writes a page for test engineers: "
              "services with pictures, the checks of TR 101 290, bit rates, clocks, tables and "
              "the programme guide.")
          .text("output", 'o', &options.output, "Write the page to this file (-: standard output)",
                "PAGE.html")
          .flag("json", 0, &options.json, "Print the same as JSON")
          .flag("force", 'f', &options.force, "Overwrite the page")
          .flag("no-pictures", 0, &options.no_pictures, "Decode no video")
          .seconds("duration", 'd', &options.seconds,
                   "Read so much of the stream (live: 30 s, files: all)")
          .parse(argc, argv, 1, 1);
  check_output(options);
  refuse_to_write_input(arguments[0], options.output);
  Input input(arguments[0]);
  input.forget();
  if (input.is_live() && !options.seconds) options.seconds = kReportSeconds;
  report::Gather gather(input, !options.no_pictures);
  gather.run(options.seconds);
  const report::Report report = gather.finish();
  if (!options.output.empty()) write_page(options.output, options.force, report::page_of(report));
  if (options.json) report::print_json(report);
}

}  // namespace tools
