// SPDX-License-Identifier: Apache-2.0
// Where a ClickHouse is, and who we are there.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace flow::host {

// As the command line says it; empty texts for what was not said.
struct ClickHouseOptions {
  std::string url;            // empty for none
  std::string password_file;  // else the environment's CLICKHOUSE_PASSWORD
  std::string ca_file;        // that signed the server's certificate; else the system's
  std::string collector;      // this one's name; else the machine's
  std::string spool;          // directory; empty for none
  std::uint64_t spool_bytes = 10'000'000'000;
};

struct ClickHouseServer {
  std::string base;  // "https://host:8443/"
  std::string user = "default";
  std::string password;
  std::string database = "default";
  std::string ca_file;

  // For messages: "http://host:8123/flows".
  [[nodiscard]] std::string Text() const { return base + database; }
};

// ServerOf reads "http://user@host:8123/flows", and the password. UsageError says what is wrong.
ClickHouseServer ServerOf(const ClickHouseOptions& options);

// Whether it is a name that needs no quotes in SQL.
bool IsSqlName(std::string_view text);

// CheckClickHouseUrl gives what is wrong with such a text; nothing where it is fine.
std::string CheckClickHouseUrl(const std::string& url);

}  // namespace flow::host
