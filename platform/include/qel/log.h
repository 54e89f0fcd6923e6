/* SPDX-License-Identifier: LGPL-2.1-or-later */
#pragma once

/**
 * SECTION:qel/log.h
 * @short_description: the log service
 *
 * Lines have a buffer, a priority, a tag and a text. Where no sink is set they
 * go to the framework's debug log, in the category of the tag's name (the
 * default category where nobody has registered one of that name; the service
 * registers none).
 */

#ifdef __cplusplus
extern "C" {
#endif

/* Buffers. */
#define QEL_LOG_BUFFER_MAIN 0
#define QEL_LOG_BUFFER_SYSTEM 2

/* Priorities. */
#define QEL_LOG_DEBUG 3
#define QEL_LOG_INFO 4
#define QEL_LOG_WARNING 5
#define QEL_LOG_ERROR 6

/**
 * QelLogSink:
 * @buffer: buffer id
 * @priority: priority
 * @tag: the line's tag
 * @text: the formatted line as it is, line ends of the message
 *   included; valid during the call
 * @user_data: as given to qel_log_set_sink()
 *
 * Called in the thread that logs, possibly with locks of the caller held: it
 * must not call back into the platform library, the element or the framework.
 */
typedef void (*QelLogSink)(int buffer, int priority, const char *tag, const char *text,
                           void *user_data);

/**
 * qel_log_set_sink:
 * @sink: (nullable): where lines go from now on; %NULL for the framework's log
 * @user_data: passed to @sink
 *
 * With a sink set, every priority is enabled. When the function returns, the
 * former sink is not running and will not be called again. Any thread, but not
 * from within a sink.
 */
void qel_log_set_sink(QelLogSink sink, void *user_data);

/**
 * qel_log_enabled:
 * @priority: a priority
 * @tag: a tag; a string that lives as long as the process
 *
 * Ask before formatting: costs two loads when logging is off. Any thread.
 *
 * Returns: nonzero if a line of that priority and tag would go anywhere.
 */
int qel_log_enabled(int priority, const char *tag);

/**
 * qel_log_write:
 * @buffer: buffer id
 * @priority: priority
 * @tag: tag; a string that lives as long as the process
 * @format: printf format of the text
 *
 * Any thread.
 */
void qel_log_write(int buffer, int priority, const char *tag, const char *format, ...)
    __attribute__((format(printf, 4, 5)));

#ifdef __cplusplus
}
#endif
