/* SPDX-License-Identifier: LGPL-2.1-or-later */
#pragma once

/**
 * SECTION:qel/trace.h
 * @short_description: watch the calls on nodes, and make them fail
 *
 * Both work on every node of the library, whatever driver is behind it. The
 * environment gives the same without code: QEL_TRACE=FILE ("-" for standard
 * error), QEL_TRACE_READS=1, QEL_FAULTS=FILE.
 */

#ifdef __cplusplus
extern "C" {
#endif

/**
 * QelTraceCallback:
 * @line: one call as strace(1) would show it, with time and thread, without a
 *   line end; valid during the call
 * @user_data: as given to qel_trace_set_callback()
 *
 * Called in the thread of the traced call, possibly with locks of the caller
 * held: it must not call back into the platform library or the element.
 */
typedef void (*QelTraceCallback)(const char *line, void *user_data);

/**
 * qel_trace_set_callback:
 * @callback: (nullable): receives each line, beside the file of QEL_TRACE
 * @user_data: passed to @callback
 * @reads: nonzero to trace reads too
 *
 * When the function returns, the former callback is not running and will not
 * be called again. Any thread, but not from within a callback.
 */
void qel_trace_set_callback(QelTraceCallback callback, void *user_data, int reads);

/**
 * qel_faults_set:
 * @script: (nullable): rules, one a line: NODE CALL WHICH EFFECT; %NULL or ""
 *   clears them
 *
 * Replaces all rules and starts their counts at zero. NODE is a logical name
 * or "*"; CALL is "open", "read" or a request's name; WHICH counts the calls
 * that NODE and CALL match: "3", "2-4", "2-" or "*"; EFFECT is an errno's name,
 * "short=N" for reads, or "overflow". "#" begins a comment. Any thread.
 *
 * Returns: 0, or the number of the first line that does not parse; then the
 *   former rules stay.
 */
int qel_faults_set(const char *script);

#ifdef __cplusplus
}
#endif
