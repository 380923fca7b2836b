// SPDX-License-Identifier: Apache-2.0
#include "host/command/clickhouse_line.h"

#include <CLI/CLI.hpp>

#include <string>

#include "host/command/argument_checks.h"
#include "host/scale/clickhouse_client.h"

namespace flow::host {

void AddClickHouseSource(CLI::App* app, ClickHouseOptions* options, const char* help) {
  const char* const left_out = ClickHouseClient::IsBuiltIn() ? "" : " (this build cannot)";
  app->add_option("--clickhouse", options->url, std::string(help) + left_out)
      ->type_name("URL")
      ->check([](const std::string& url) { return CheckClickHouseUrl(url); });
  app->add_option("--clickhouse-password-file", options->password_file,
                  "File with its user's password (default: the variable CLICKHOUSE_PASSWORD)")
      ->type_name("FILE");
  app->add_option("--clickhouse-ca", options->ca_file,
                  "File of the certificates that may have signed the server's (default: the "
                  "system's)")
      ->type_name("FILE");
}

void AddClickHouseOptions(CLI::App* app, ClickHouseOptions* options, bool is_live) {
  AddClickHouseSource(app, options,
                      "Send every counter and every flow to a ClickHouse, as in "
                      "http://user@host:8123/flows; https for TLS; docs/scale.md tells more");
  app->add_option("--collector", options->collector,
                  is_live ? "This collector's name there, no other one's (default: the machine's)"
                          : "The name under which captures are kept there (default: replay)")
      ->type_name("NAME");
  if (!is_live) return;
  app->add_option("--spool", options->spool,
                  "Directory in which what the ClickHouse cannot take waits for it (default: it "
                  "waits in memory)")
      ->type_name("DIR");
  app->add_option("--spool-size", options->spool_bytes,
                  "How large the spool may be, as in 500M or 20G; what finds no room is let go and "
                  "counted (default: 10G)")
      ->type_name("BYTES")
      ->transform(CLI::AsSizeValue(true))
      ->transform(NotNegative());
}

}  // namespace flow::host
