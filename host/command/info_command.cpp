// SPDX-License-Identifier: Apache-2.0
#include "host/command/info_command.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "host/base/error.h"
#include "host/base/guid_text.h"
#include "host/base/number_text.h"
#include "host/base/printable.h"
#include "host/border/component_catalog.h"
#include "host/border/plugin_library.h"
#include "host/output/text_table.h"

namespace flow::host {
namespace {

using Align = TextTable::Align;
using Components = std::vector<ComponentDescription>;

std::string RolesOf(const ComponentDescription& component) {
  std::vector<std::string> roles;
  if (component.handler) roles.emplace_back("protocol handler");
  if (component.meter) roles.emplace_back("meter");
  if (component.meter && component.meter->listens_on_channels) roles.emplace_back("listener");
  if (component.group) roles.emplace_back("counter group");
  return fmt::format("{}", fmt::join(roles, ", "));
}

void PrintComponents(const Components& components) {
  fmt::print("\nComponents: {}\n", components.size());
  TextTable table;
  for (const char* heading : {"Name", "Role", "Version", "Class", "Description"}) {
    table.AddColumn(heading, Align::kLeft);
  }
  for (const ComponentDescription& component : components) {
    table.AddRow({Printable(component.name), RolesOf(component),
                  fmt::format("{}.{}", component.version_major, component.version_minor),
                  GuidText(component.clsid), Printable(component.description)});
  }
  table.Print(stdout);
}

std::string MetersOf(const Components& components, const IID& protocol) {
  std::vector<std::string> names;
  for (const ComponentDescription& component : components) {
    if (!component.meter || !(component.meter->protocol == protocol)) continue;
    names.push_back(Printable(component.name) +
                    (component.meter->updates_flows ? " (counters and flows)" : " (counters)"));
  }
  return names.empty() ? "none" : fmt::format("{}", fmt::join(names, ", "));
}

void PrintProtocols(const Components& components) {
  fmt::print("\nProtocols\n");
  TextTable table;
  for (const char* heading : {"Name", "UDP ports", "Metered by", "Identifier"}) {
    table.AddColumn(heading, Align::kLeft);
  }
  for (const ComponentDescription& component : components) {
    if (!component.handler) continue;
    table.AddRow({Printable(component.handler->name),
                  fmt::format("{}", fmt::join(component.handler->ports, ", ")),
                  MetersOf(components, component.handler->protocol),
                  GuidText(component.handler->protocol)});
  }
  table.Print(stdout);
}

void PrintGroup(const GroupDescription& group) {
  fmt::print("\nCounter group {}: {}\n", Printable(group.name), Printable(group.description));
  fmt::print("  {}\n", GuidText(group.guid));
  fmt::print("  buckets of {}, {}, pruned from {} to {} keys\n", DurationText(group.bucket_ms),
             group.top_n ? fmt::format("top {} kept", group.top_n_count) : "no top list",
             group.track_high, group.track_low);
  TextTable table;
  table.AddColumn("Meter", Align::kRight);
  table.AddColumn("Name", Align::kLeft);
  table.AddColumn("Units", Align::kLeft);
  table.AddColumn("Type", Align::kRight);
  for (const GroupMeterDescription& meter : group.meters) {
    table.AddRow({fmt::format("{}", meter.index), Printable(meter.name), Printable(meter.units),
                  fmt::format("{}", meter.type)});
  }
  table.Print(stdout);
}

}  // namespace

int RunInfo(const InfoOptions& options) {
  const PluginLibrary library(options.plugin);
  const Components components = DescribeComponents(library.package());
  const std::string build = library.Build();
  fmt::print("Plug-in {}\n", Printable(library.path()));
  fmt::print("Build {}\n", build.empty() ? "not told" : Printable(build));
  if (!components.empty()) fmt::print("Made by {}\n", Printable(components.front().vendor));
  PrintComponents(components);
  PrintProtocols(components);
  for (const ComponentDescription& component : components) {
    if (component.group) PrintGroup(*component.group);
  }
  return kExitOk;
}

}  // namespace flow::host
