// SPDX-License-Identifier: Apache-2.0
// flowhost clickhouse-schema
#pragma once

#include "host/command/options.h"

namespace flow::host {

int RunClickHouseSchema(const ClickHouseSchemaOptions& options);

}  // namespace flow::host
