// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <qel/log.h>

/// A line of the platform library itself, formatted only where someone listens.
#define QEL_LOG_LINE(priority, format, ...)                                                        \
  do {                                                                                             \
    if (qel_log_enabled((priority), "qel"))                                                        \
      qel_log_write(QEL_LOG_BUFFER_MAIN, (priority), "qel", "%s: %s(%d) > " format, __FILE_NAME__, \
                    __func__, __LINE__ __VA_OPT__(, ) __VA_ARGS__);                                \
  } while (0)
