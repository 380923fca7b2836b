// SPDX-License-Identifier: Apache-2.0
#include "host/command/clickhouse_schema_command.h"

#include <cstdio>

#include "host/base/error.h"
#include "host/border/component_catalog.h"
#include "host/border/plugin_library.h"
#include "host/names/group_catalog.h"
#include "host/scale/clickhouse_schema.h"

namespace flow::host {

int RunClickHouseSchema(const ClickHouseSchemaOptions& options) {
  const PluginLibrary library(options.plugin);
  std::vector<GroupDescription> described;
  for (const ComponentDescription& component : DescribeComponents(library.package())) {
    if (component.group) described.push_back(*component.group);
  }
  const GroupCatalog catalog(described);
  std::string schema = ClickHouseSchema(catalog.groups(), options.cluster);
  if (!options.kafka.brokers.empty()) {
    schema += KafkaSchema(catalog.groups(), options.kafka.brokers, options.kafka.topics);
  }
  const bool is_written = std::fwrite(schema.data(), 1, schema.size(), stdout) == schema.size();
  return is_written && std::fflush(stdout) == 0 ? kExitOk : kExitTrouble;
}

}  // namespace flow::host
