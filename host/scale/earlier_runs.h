// SPDX-License-Identifier: Apache-2.0
// What a ClickHouse knows of runs: this one, where captures are replayed again, and those of this
// collector that were killed.
#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "host/scale/clickhouse_client.h"
#include "host/scale/flow_blocks.h"

namespace flow::host {

// CheckTables throws a HostError where the server cannot be reached or lacks the tables; it gives
// the names of all that are there.
std::set<std::string> CheckTables(ClickHouseClient* client);

enum class RunState : std::uint8_t { kNone, kPartly, kOther, kEnded };
// kOther: in part, by another program.
RunState StateOfRun(ClickHouseClient* client, const Sending& sending, const std::string& program);
// BeginRun has one be there in part.
void BeginRun(ClickHouseClient* client, const Sending& sending, const std::string& program);
// A run that is there in part and cannot be made whole: what to do about it.
std::string PartlyThere(const Sending& sending);

// EndEarlierRuns gives runs of this collector that were killed the rows of their last hour and day,
// from those of the minutes, and the time until this one a row in the gaps. Twice does no harm: the
// rows have the keys that the run itself would have given them.
void EndEarlierRuns(ClickHouseClient* client, const Sending& sending);

}  // namespace flow::host
