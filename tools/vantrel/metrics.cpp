// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/vantrel/metrics.h"

#include <array>
#include <cstring>
#include <sstream>
#include <string_view>

#include "tools/core/failure.h"

namespace tools {
namespace {

/// The two formats that Prometheus reads. They differ in what a counter's type
/// and help belong to: the name, or the name with its suffix.
struct Format {
  const char* content_type;
  const char* suffix;  // of a family's name
  const char* end;
};

constexpr Format kText{"text/plain; version=0.0.4; charset=utf-8", "_total", ""};
constexpr Format kOpenMetrics{"application/openmetrics-text; version=1.0.0; charset=utf-8", "",
                              "# EOF\n"};

template <typename Record>
struct Metric {
  const char* name;
  const char* help;
  std::uint64_t Record::*value;
};

constexpr auto kInput = std::to_array<Metric<qel_input_counters>>({
    {"vantrel_bytes", "Bytes fed.", &qel_input_counters::bytes},
    {"vantrel_packets", "Packets found.", &qel_input_counters::packets},
    {"vantrel_null_packets", "Null packets.", &qel_input_counters::null_packets},
    {"vantrel_scrambled_packets", "Packets with scrambled payload.",
     &qel_input_counters::scrambled},
    {"vantrel_repeated_packets", "Repeated packets, ignored.", &qel_input_counters::repeated},
    {"vantrel_transport_error_packets", "Packets with transport_error_indicator, not used.",
     &qel_input_counters::transport_errors},
    {"vantrel_sync_losses", "Times that sync was lost.", &qel_input_counters::sync_losses},
    {"vantrel_skipped_bytes", "Bytes passed over while looking for sync.",
     &qel_input_counters::skipped_bytes},
    {"vantrel_flushed_bytes", "Bytes dropped because the input was flushing.",
     &qel_input_counters::flushed},
});

constexpr auto kPid = std::to_array<Metric<qel_pid_counters>>({
    {"vantrel_pid_packets", "Packets of a PID.", &qel_pid_counters::packets},
    {"vantrel_pid_discontinuities", "Continuity counter jumps of a PID.",
     &qel_pid_counters::discontinuities},
    {"vantrel_pid_sections", "Whole sections of a PID.", &qel_pid_counters::sections},
    {"vantrel_pid_section_errors", "Sections of a PID that came in pieces.",
     &qel_pid_counters::section_errors},
    {"vantrel_pid_crc_errors", "Sections of a PID with a bad CRC.", &qel_pid_counters::crc_errors},
});

constexpr auto kNode = std::to_array<Metric<qel_node_counters>>({
    {"vantrel_node_records", "Sections, PES packets or pieces that a node took in.",
     &qel_node_counters::records},
    {"vantrel_node_bytes", "Bytes that a node took in.", &qel_node_counters::bytes},
    {"vantrel_node_dropped", "Records that a node had no room for.", &qel_node_counters::dropped},
    {"vantrel_node_overflows", "Times that a node's reader was told of that.",
     &qel_node_counters::overflows},
});

template <typename Record>
void begin(std::ostream& out, const Metric<Record>& metric, const Format& format) {
  out << "# HELP " << metric.name << format.suffix << ' ' << metric.help << '\n'
      << "# TYPE " << metric.name << format.suffix << " counter\n";
}

/// A descriptor tells apart the nodes of one name.
std::string labels_of(const qel_node_counters& node) {
  return std::string("{node=\"") + node.name + "\",fd=\"" + std::to_string(node.fd) + "\",pid=\"" +
         std::to_string(node.pid) + "\"} ";
}

/// ADDRESS:PORT; an address of IPv6 stands in brackets.
GSocketAddress* parse_address(const std::string& text) {
  const auto colon = text.rfind(':');
  if (colon == std::string::npos) return nullptr;
  std::string host = text.substr(0, colon);
  if (host.starts_with('[') && host.ends_with(']')) host = host.substr(1, host.size() - 2);
  if (host.empty()) host = "0.0.0.0";
  if (host == "localhost") host = "127.0.0.1";
  guint64 port = 0;
  if (!g_ascii_string_to_unsigned(text.c_str() + colon + 1, 10, 0, 65535, &port, nullptr))
    return nullptr;
  return g_inet_socket_address_new_from_string(host.c_str(), static_cast<guint>(port));
}

std::string page_of(const Counters& counters, const Format& format) {
  std::ostringstream out;
  for (const auto& metric : kInput) {
    begin(out, metric, format);
    out << metric.name << "_total " << counters.input.*metric.value << '\n';
  }
  for (const auto& metric : kPid) {
    begin(out, metric, format);
    for (const auto& row : counters.pids)
      out << metric.name << "_total{pid=\"" << row.pid << "\"} " << row.counters.*metric.value
          << '\n';
  }
  for (const auto& metric : kNode) {
    begin(out, metric, format);
    for (const auto& node : counters.nodes)
      out << metric.name << "_total" << labels_of(node) << node.*metric.value << '\n';
  }
  out << format.end;
  return out.str();
}

/// OpenMetrics for who asks for it, the older format for anybody else.
const Format& wanted(SoupServerMessage* message) {
  const char* accepted =
      soup_message_headers_get_list(soup_server_message_get_request_headers(message), "Accept");
  const bool open = accepted != nullptr && std::strstr(accepted, "application/openmetrics-text");
  return open ? kOpenMetrics : kText;
}

}  // namespace

void MetricsServer::on_request(SoupServer*, SoupServerMessage* message, const char* path,
                               GHashTable*, gpointer self) {
  const bool found = std::string_view(path) == "/metrics";
  const Format& format = wanted(message);
  const dmx_input input = static_cast<MetricsServer*>(self)->input_;
  const std::string body = found ? page_of(Counters::read(input), format) : "see /metrics\n";
  soup_server_message_set_status(message, found ? 200 : 404, nullptr);
  soup_server_message_set_response(message, found ? format.content_type : "text/plain",
                                   SOUP_MEMORY_COPY, body.data(), body.size());
}

MetricsServer::MetricsServer(const std::string& address, dmx_input input) : input_(input) {
  g_autoptr(GSocketAddress) where = parse_address(address);
  if (where == nullptr)
    throw Failure(Status::kUsage,
                  "--metrics: \"" + address + "\" is no ADDRESS:PORT, as in 127.0.0.1:9464");
  context_ = g_main_context_new();
  loop_ = g_main_loop_new(context_, FALSE);
  g_main_context_push_thread_default(context_);
  server_ = soup_server_new("server-header", "vantrel", nullptr);
  soup_server_add_handler(server_, nullptr, on_request, this, nullptr);
  g_autoptr(GError) error = nullptr;
  const bool listens =
      soup_server_listen(server_, where, static_cast<SoupServerListenOptions>(0), &error) != FALSE;
  g_main_context_pop_thread_default(context_);
  if (!listens) throw Failure(Status::kFailed, address + ": " + error->message);
  thread_ = g_thread_new(
      "metrics",
      [](gpointer loop) -> gpointer {
        GMainContext* context = g_main_loop_get_context(static_cast<GMainLoop*>(loop));
        g_main_context_push_thread_default(context);
        g_main_loop_run(static_cast<GMainLoop*>(loop));
        g_main_context_pop_thread_default(context);
        return nullptr;
      },
      loop_);
}

MetricsServer::~MetricsServer() {
  // By a source: the loop may not run yet.
  GSource* source = g_idle_source_new();
  g_source_set_callback(
      source,
      [](gpointer loop) -> gboolean {
        g_main_loop_quit(static_cast<GMainLoop*>(loop));
        return G_SOURCE_REMOVE;
      },
      loop_, nullptr);
  g_source_attach(source, context_);
  g_source_unref(source);
  g_thread_join(thread_);
  soup_server_disconnect(server_);
  g_object_unref(server_);
  g_main_loop_unref(loop_);
  g_main_context_unref(context_);
}

std::string MetricsServer::uri() const {
  GSList* uris = soup_server_get_uris(server_);
  g_autofree gchar* text =
      uris != nullptr ? g_uri_to_string(static_cast<GUri*>(uris->data)) : g_strdup("");
  g_slist_free_full(uris, [](gpointer uri) { g_uri_unref(static_cast<GUri*>(uri)); });
  return std::string(text) + "metrics";
}

}  // namespace tools
