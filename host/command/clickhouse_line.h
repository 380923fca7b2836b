// SPDX-License-Identifier: Apache-2.0
// The options of commands that send to a ClickHouse, or ask one.
#pragma once

#include "host/scale/clickhouse_server.h"

namespace CLI {
class App;
}

namespace flow::host {

// AddClickHouseSource has where it is and who we are, AddClickHouseOptions how a collector sends as
// well.
void AddClickHouseSource(CLI::App* app, ClickHouseOptions* options, const char* help);
void AddClickHouseOptions(CLI::App* app, ClickHouseOptions* options, bool is_live);

}  // namespace flow::host
