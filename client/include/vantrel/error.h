/* SPDX-License-Identifier: LGPL-2.1-or-later */
#pragma once

#include <glib-object.h>

G_BEGIN_DECLS

/**
 * VANTREL_ERROR:
 *
 * Domain of the client library's errors.
 */
#define VANTREL_ERROR (vantrel_error_quark())

/**
 * VantrelError:
 * @VANTREL_ERROR_FOREIGN: the element is no "vantrel", or the filter is not
 *   one of this receiver
 * @VANTREL_ERROR_INVALID: a PID, a table id or a pattern that cannot be
 * @VANTREL_ERROR_BUSY: the filter runs already, or the element changes state
 * @VANTREL_ERROR_REFUSED: the element could not do it; its log says why
 *
 * What can go wrong.
 */
typedef enum {
  VANTREL_ERROR_FOREIGN,
  VANTREL_ERROR_INVALID,
  VANTREL_ERROR_BUSY,
  VANTREL_ERROR_REFUSED,
} VantrelError;

#define VANTREL_TYPE_ERROR (vantrel_error_get_type())
GType vantrel_error_get_type(void);

GQuark vantrel_error_quark(void);

G_END_DECLS
