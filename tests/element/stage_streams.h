// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <optional>
#include <string>

#include "instance/instance.h"

namespace vantrel::testing {

/// The word for a stream's content.
std::string content_name(guint content);

/// Runs a command of Stage that calls a function on streams by itself, and
/// returns what came of it; nothing for other commands.
///
///     change CONTENT PID CODEC        gives a content a PID
///     open, program, create, start-filter, stop-filter, close, unregister INDEX
///                                     one step with a record; "-": without one
///     descriptor INDEX NUMBER         closes a record's node, writes this instead
///     choose DECODER SLOT             audio decoder and caption slot
///     two-pid MODE                    the event of the two-PID mode
///     caps CODEC, map-caps INDEX      the caps of a codec, of a record
///     fill                            recorded streams until the table is full
std::optional<std::string> run_on_streams(GstVantrel* element, const std::string& command);

}  // namespace vantrel::testing
