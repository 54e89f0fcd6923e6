// SPDX-License-Identifier: LGPL-2.1-or-later
#include <qel/marker.h>
#include <sys/prctl.h>

#include <cstring>

#include "common/errno_guard.h"
#include "platform/node_manager/trace.h"
#include "platform/node_manager/watch.h"

void qel_marker(const char* text) {
  const vantrel::ErrnoGuard keep_errno;
  const std::size_t length = std::strlen(text);
  prctl(QEL_MARKER_OPTION, text, length);
  if ((qel::watched() & qel::kTraceCalls) != 0) qel::trace::marker(text, length);
}
