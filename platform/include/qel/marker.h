/* SPDX-License-Identifier: LGPL-2.1-or-later */
#pragma once

/**
 * SECTION:qel/marker.h
 * @short_description: performance markers
 */

#ifdef __cplusplus
extern "C" {
#endif

/** QEL_MARKER_OPTION: process-control option that receives markers. */
#define QEL_MARKER_OPTION 666

/**
 * qel_marker:
 * @text: the marker, for example "[BEGIN]PER_gstvantrel::destory"
 *
 * Hands the text and its length to the kernel with prctl(2), option 666. A
 * kernel that does not know the option ignores it, and so does this function.
 * Any thread; keeps errno.
 */
void qel_marker(const char *text);

#ifdef __cplusplus
}
#endif
