// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "tools/core/input.h"
#include "tools/core/psi.h"

namespace tools {

/// Whether services' names are wanted, which come up to two seconds later than
/// all else.
enum class Names { kWanted, kNotWanted };

/// Reads what the stream says of itself from its beginning: PAT, PMTs and SDT,
/// at most until all are there, and rewinds the input.
Psi discover(Input& input, Names names = Names::kWanted);

/// The service of a number or a name; the first one with streams where `wanted`
/// is empty. Failure, which lists those that are there, when there is none.
const Programme& choose_service(const Psi& psi, const std::string& wanted);

}  // namespace tools
