// SPDX-License-Identifier: Apache-2.0
#include "host/command/web_line.h"

#include <CLI/CLI.hpp>

#include <vector>

#include "host/command/clickhouse_line.h"

namespace flow::host {
namespace {

constexpr char kServeExamples[] =
    "It only reads. /api/top, /api/flows, ... take the options of the commands of the same names\n"
    "and answer with their JSON; docs/http.md has them.\n"
    "\n"
    "Examples:\n"
    "  flowhost serve --store /var/lib/flowhost/store       http://127.0.0.1:8055/ in a browser\n"
    "  flowhost serve --clickhouse http://user@host:8123/flows\n"
    "  flowhost serve --store DIR --http 192.0.2.1:8055 --http-user /etc/flowhost/users\n"
    "                                                       for others too, with a password";

void AddHttpOptions(CLI::App* app, HttpOptions* options, const char* help) {
  app->add_option_function<std::string>(
         "--http",
         [options](const std::string& text) {
           options->listen = Endpoint::Parse(text);
           if (options->listen) return;
           throw CLI::ValidationError(
               "--http", text + " is no address and port such as 127.0.0.1:8055 or [::1]:8055");
         },
         help)
      ->type_name("ADDRESS:PORT");
  app->add_option("--http-user", options->users,
                  "File of those who may ask, lines NAME:HASH as mkpasswd makes hashes (default: "
                  "everybody on this machine)")
      ->type_name("FILE");
  app->add_flag("--http-open", options->is_open,
                "Let everybody who reaches the address ask, without a password");
  app->add_option("--http-host", options->hosts,
                  "A further name that browsers may reach a loopback address by, as behind a "
                  "proxy; repeatable (default: localhost and the address)")
      ->type_name("NAME")
      ->allow_extra_args(false);
}

void AddNames(CLI::App* app, WebOptions* options) {
  app->add_option("--names", options->names, "File of names, as the questions have it")
      ->type_name("FILE");
  app->add_option("--geo", options->geo,
                  "Database of countries and AS numbers, as the questions have it; repeatable")
      ->type_name("FILE")
      ->allow_extra_args(false);
}

}  // namespace

void AddListenWeb(CLI::App* app, WebOptions* options) {
  const std::size_t before = app->get_options().size();
  AddHttpOptions(app, &options->http,
                 "Show the store in a browser, answer questions to it and have metrics for "
                 "Prometheus at /metrics, here (default: nowhere)");
  AddNames(app, options);
  app->add_option("--metrics-exporters", options->metrics_exporters,
                  "How many exporters have metrics of their own; the others are one (default: 100)")
      ->type_name("N")
      ->check(CLI::Range(0, 10'000));
  if (HasWeb()) return;
  const std::vector<CLI::Option*> all = app->get_options();
  for (std::size_t i = before; i < all.size(); ++i) all[i]->group("");
}

void AddNoSandbox(CLI::App* app, bool* is_restricted) {
  app->add_flag_callback(
      "--no-sandbox", [is_restricted] { *is_restricted = false; },
      "Keep capabilities, and system calls that are never made");
}

CLI::App* AddServe(CLI::App* app, ServeOptions* options) {
  CLI::App* const serve = app->add_subcommand(
      "serve", "Show a store or a ClickHouse in a browser, and answer questions over HTTP");
  serve->footer(kServeExamples);
  if (!HasWeb()) serve->group("");
  serve->add_option("--store", options->web.store, "The directory of the store")->type_name("DIR");
  AddClickHouseSource(serve, &options->web.clickhouse,
                      "A ClickHouse rather than a store, as in http://user@host:8123/flows");
  options->web.http.listen = Endpoint{IpAddress::Ipv4(0x7F000001), 8055};
  AddHttpOptions(serve, &options->web.http, "Where to listen (default: 127.0.0.1:8055)");
  AddNames(serve, &options->web);
  AddNoSandbox(serve, &options->is_restricted);
  return serve;
}

}  // namespace flow::host
