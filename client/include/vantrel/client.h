/* SPDX-License-Identifier: LGPL-2.1-or-later */
#pragma once

/* Everything of the client library. */

#include <vantrel/error.h>
#include <vantrel/receiver.h>
#include <vantrel/section_filter.h>
