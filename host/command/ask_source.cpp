// SPDX-License-Identifier: Apache-2.0
#include "host/command/ask_source.h"

#include "host/ask/store_source.h"
#include "host/scale/clickhouse_source.h"

namespace flow::host {

std::unique_ptr<CounterSource> OpenSource(const std::string& store,
                                          const ClickHouseOptions& clickhouse) {
  if (clickhouse.url.empty()) return std::make_unique<StoreSource>(store);
  return std::make_unique<ClickHouseSource>(clickhouse);
}

}  // namespace flow::host
