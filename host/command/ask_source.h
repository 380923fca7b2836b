// SPDX-License-Identifier: Apache-2.0
// Where questions are put, as options say it.
#pragma once

#include <memory>
#include <string>

#include "host/ask/counter_source.h"
#include "host/scale/clickhouse_server.h"

namespace flow::host {

// OpenSource opens the store, or the ClickHouse where `clickhouse` names one. HostError where there
// is none, or none that answers.
std::unique_ptr<CounterSource> OpenSource(const std::string& store,
                                          const ClickHouseOptions& clickhouse);

}  // namespace flow::host
