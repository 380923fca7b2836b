// SPDX-License-Identifier: Apache-2.0
// In place of what talks to a ClickHouse, where it is left out of the build.
#include "host/scale/clickhouse_client.h"

namespace flow::host {

class ClickHouseClient::Handle {};

ClickHouseClient::ClickHouseClient(ClickHouseServer /*server*/) {
  throw UsageError(
      "--clickhouse: this flowhost was built without libcurl, by which it would talk to a "
      "ClickHouse (FLOW_CLICKHOUSE)");
}

ClickHouseClient::~ClickHouseClient() = default;

bool ClickHouseClient::IsBuiltIn() { return false; }

void ClickHouseClient::Insert(const std::string& /*statement*/, const std::string& /*query_id*/,
                              std::string_view /*rows*/) {}

std::string ClickHouseClient::Ask(const std::string& /*query*/) { return ""; }

std::string ClickHouseClient::AskAtLength(const std::string& /*query*/) { return ""; }

}  // namespace flow::host
