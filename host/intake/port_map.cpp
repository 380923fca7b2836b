// SPDX-License-Identifier: Apache-2.0
#include "host/intake/port_map.h"

#include <absl/strings/match.h>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "host/base/error.h"

namespace flow::host {
namespace {

constexpr std::size_t kPorts = 65536;

const ComponentDescription& HandlerOf(std::span<const ComponentDescription> components,
                                      const std::string& name) {
  std::vector<std::string> names;
  for (const ComponentDescription& component : components) {
    if (!component.handler) continue;
    if (absl::EqualsIgnoreCase(component.handler->name, name)) return component;
    names.push_back(component.handler->name);
  }
  throw UsageError(
      fmt::format("--port: no protocol is named {}; there are {}", name, fmt::join(names, ", ")));
}

}  // namespace

std::vector<ProtocolPort> PortsToListenOn(std::span<const ComponentDescription> components,
                                          std::span<const ExtraPort> extra_ports) {
  std::vector<ProtocolPort> ports;
  const auto add = [&](std::uint16_t port, const ComponentDescription& handler) {
    if (std::ranges::find(ports, port, &ProtocolPort::port) == ports.end()) {
      ports.push_back({port, &handler});
    }
  };
  for (const ExtraPort& extra : extra_ports) add(extra.port, HandlerOf(components, extra.protocol));
  if (!ports.empty()) return ports;
  for (const ComponentDescription& component : components) {
    if (!component.handler) continue;
    for (const std::uint16_t port : component.handler->ports) add(port, component);
  }
  return ports;
}

PortMap::PortMap(std::span<const ComponentDescription> components,
                 std::span<const ExtraPort> extra_ports)
    : protocols_(kPorts) {
  for (const ComponentDescription& component : components) {
    if (!component.handler) continue;
    for (const std::uint16_t port : component.handler->ports) {
      if (protocols_[port] == nullptr) protocols_[port] = &component.handler->protocol;
    }
  }
  for (const ExtraPort& extra : extra_ports) {
    protocols_[extra.port] = &HandlerOf(components, extra.protocol).handler->protocol;
  }
}

}  // namespace flow::host
