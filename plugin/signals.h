// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <glib-object.h>

/// Creates the five signals on the element's class.
void create_signals(gpointer klass);
