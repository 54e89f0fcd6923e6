// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/node_manager/faults.h"

#include <glib.h>
#include <qel/trace.h>

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <utility>

#include "platform/log/log_line.h"
#include "platform/node_manager/watch.h"

namespace qel::faults {
namespace {

struct State {
  std::mutex mutex;
  std::vector<FaultRule> rules;  // guarded by mutex
  bool broken = false;           // guarded by mutex
};

/// Never destroyed: threads may still call while the process exits.
State& state() {
  static State& instance = *new State;
  return instance;
}

void replace(std::vector<FaultRule> rules, bool broken) {
  State& s = state();
  const std::lock_guard lock(s.mutex);
  s.rules = std::move(rules);
  s.broken = broken;
  set_watch(kFaults, broken || !s.rules.empty() ? kFaults : 0U);
}

void add(FaultEffect& sum, const FaultEffect& effect) {
  if (sum.error == 0) sum.error = effect.error;
  sum.limit = std::min(sum.limit, effect.limit);
  sum.overflow |= effect.overflow;
}

}  // namespace

void read_environment() {
  const char* name = secure_getenv("QEL_FAULTS");
  if (name == nullptr || *name == '\0') return;
  g_autofree char* text = nullptr;
  gsize size = 0;
  g_autoptr(GError) error = nullptr;
  if (!g_file_get_contents(name, &text, &size, &error)) {
    QEL_LOG_LINE(QEL_LOG_ERROR, "%s: %s", name, error->message);
    return replace({}, true);
  }
  std::vector<FaultRule> rules;
  const int line = parse_fault_script({text, size}, rules);
  if (line != 0) QEL_LOG_LINE(QEL_LOG_ERROR, "%s:%d: not a fault rule", name, line);
  replace(std::move(rules), line != 0);
}

FaultEffect next(std::string_view node, std::string_view call) {
  FaultEffect sum;
  State& s = state();
  const std::lock_guard lock(s.mutex);
  for (FaultRule& rule : s.rules) {
    if (!rule.matches(node, call)) continue;
    ++rule.count;
    if (rule.first <= rule.count && rule.count <= rule.last) add(sum, rule.effect);
  }
  return sum;
}

bool broken() {
  State& s = state();
  const std::lock_guard lock(s.mutex);
  return s.broken;
}

}  // namespace qel::faults

int qel_faults_set(const char* script) {
  qel::watched();
  std::vector<qel::FaultRule> rules;
  const int line = qel::parse_fault_script(script != nullptr ? script : "", rules);
  if (line == 0) qel::faults::replace(std::move(rules), false);
  return line;
}
