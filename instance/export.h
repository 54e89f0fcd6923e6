// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

/// Marks what the module exports; everything else is hidden.
#define VANTREL_EXPORT __attribute__((visibility("default")))
