// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <glib-object.h>

// An element's memory, from its making to its end.

/// Instance initialiser of the element's type.
void gst_vantrel_init(GTypeInstance* instance, gpointer g_class);
/// Takes down what is up: no reader may run on without the element.
void gst_vantrel_dispose(GObject* object);
/// Closes what is open still, and destroys the C++ members.
void gst_vantrel_finalize(GObject* object);
