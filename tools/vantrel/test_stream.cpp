// SPDX-License-Identifier: LGPL-2.1-or-later
#include <cstdio>

#include "tools/core/failure.h"
#include "tools/core/options.h"
#include "tools/core/output.h"
#include "tools/vantrel/command.h"
#include "tools/core/make_stream.h"

namespace tools {

void run_test_stream(int argc, char** argv) {
  std::string output;
  bool force = false;
  Options("", "Makes a transport stream of ten seconds: a service with H.264 video and two "
              "audio streams, and service information.")
      .text("output", 'o', &output, "Where to", "FILE")
      .flag("force", 'f', &force, "Overwrite the file")
      .parse(argc, argv, 0, 0);
  if (output.empty()) throw Failure(Status::kUsage, "needs --output FILE (try --help)");
  refuse_to_overwrite(output, force);
  make_stream(output);
  std::printf("%s\n", output.c_str());
}

}  // namespace tools
