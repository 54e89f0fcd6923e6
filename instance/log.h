// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <qel/log.h>

// The element's log lines: "gstvantrel: function(line) > message". The level is
// tested before anything is formatted. The _AS forms name the function that a
// reader of the log knows, where the line is written by a helper of it.

#define VANTREL_LOG_TAG "vantrel"
#define VANTREL_LOG_FILE "gstvantrel"

#define VANTREL_LOG(buffer, priority, function, format, ...)                            \
  do {                                                                                  \
    if (qel_log_enabled((priority), VANTREL_LOG_TAG))                                   \
      qel_log_write((buffer), (priority), VANTREL_LOG_TAG, "%s: %s(%d) > " format,      \
                    VANTREL_LOG_FILE, (function), __LINE__ __VA_OPT__(, ) __VA_ARGS__); \
  } while (0)

#define LOG_DEBUG_AS(function, ...) \
  VANTREL_LOG(QEL_LOG_BUFFER_MAIN, QEL_LOG_DEBUG, function, __VA_ARGS__)
#define LOG_INFO_AS(function, ...) \
  VANTREL_LOG(QEL_LOG_BUFFER_MAIN, QEL_LOG_INFO, function, __VA_ARGS__)
#define LOG_WARNING_AS(function, ...) \
  VANTREL_LOG(QEL_LOG_BUFFER_MAIN, QEL_LOG_WARNING, function, __VA_ARGS__)
#define LOG_ERROR_AS(function, ...) \
  VANTREL_LOG(QEL_LOG_BUFFER_MAIN, QEL_LOG_ERROR, function, __VA_ARGS__)
#define LOG_SYSTEM_INFO_AS(function, ...) \
  VANTREL_LOG(QEL_LOG_BUFFER_SYSTEM, QEL_LOG_INFO, function, __VA_ARGS__)

#define LOG_DEBUG(...) LOG_DEBUG_AS(__func__, __VA_ARGS__)
#define LOG_INFO(...) LOG_INFO_AS(__func__, __VA_ARGS__)
#define LOG_WARNING(...) LOG_WARNING_AS(__func__, __VA_ARGS__)
#define LOG_ERROR(...) LOG_ERROR_AS(__func__, __VA_ARGS__)
#define LOG_SYSTEM_INFO(...) LOG_SYSTEM_INFO_AS(__func__, __VA_ARGS__)

// Bracket most functions that reach the hardware. END is written on the normal
// exit only, so it is a statement and not a guard.
#define PERF_BEGIN() LOG_DEBUG("[PERF_CHECK][BEGIN]")
#define PERF_END() LOG_DEBUG("[PERF_CHECK][END]")
