// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <libsoup/soup.h>

#include <string>

#include "tools/vantrel/counters.h"

namespace tools {

/// Serves the counters of the moment at http://ADDRESS:PORT/metrics, as OpenMetrics
/// or in Prometheus's own format, whichever is asked for, from a thread of its own,
/// for as long as it lives.
class MetricsServer {
 public:
  /// Failure when the address is none or is taken. Port 0 takes any free one.
  MetricsServer(const std::string& address, dmx_input input);
  ~MetricsServer();
  MetricsServer(const MetricsServer&) = delete;
  MetricsServer& operator=(const MetricsServer&) = delete;

  /// The address that is listened on.
  [[nodiscard]] std::string uri() const;

 private:
  static void on_request(SoupServer*, SoupServerMessage* message, const char* path, GHashTable*,
                         gpointer self);

  dmx_input input_;
  GMainContext* context_;
  GMainLoop* loop_;
  SoupServer* server_;  // the thread's, once it runs
  GThread* thread_;
};

}  // namespace tools
