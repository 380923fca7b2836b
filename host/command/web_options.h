// SPDX-License-Identifier: Apache-2.0
// What the web shows, and where.
#pragma once

#include <string>
#include <vector>

#include "host/scale/clickhouse_server.h"
#include "host/web/http_options.h"

namespace flow::host {

// What the questions of the web are answered with.
struct WebOptions {
  HttpOptions http;
  std::size_t metrics_exporters = 100;  // that have series of their own
  std::string store;                    // empty for none
  ClickHouseOptions clickhouse;         // a server rather than a store
  std::string names;                    // as AskOptions have it
  std::vector<std::string> geo;         // likewise
};

struct ServeOptions {
  WebOptions web;
  bool is_restricted = true;  // as ListenOptions have it
};

}  // namespace flow::host
