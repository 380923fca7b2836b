// SPDX-License-Identifier: Apache-2.0
// What the plug-in says it offers: its components, and of each what it does.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "flowhandlers/plugin_interfaces.h"
#include "host/border/interface_ptr.h"

namespace flow::host {

// A protocol handler's answers.
struct HandlerDescription {
  IID protocol{};
  std::string name;
  std::vector<std::uint16_t> ports;  // UDP ports that it prefers, in its order
};

// A meter's answers.
struct MeterDescription {
  IID protocol{};  // the protocol whose datagrams it counts
  bool updates_flows = false;
  bool listens_on_channels = false;
};

// A meter of a counter group, as the group describes it.
struct GroupMeterDescription {
  int index = 0;
  int type = 0;
  std::string name;
  std::string units;
};

// A counter group's answers.
struct GroupDescription {
  GUID guid{};
  std::string name;
  std::string description;
  bool top_n = false;
  unsigned top_n_count = 0;
  unsigned bucket_ms = 0;
  unsigned track_high = 0;  // numbers of keys at which pruning starts and stops
  unsigned track_low = 0;
  std::vector<GroupMeterDescription> meters;
};

// One entry of the plug-in's table.
struct ComponentDescription {
  CLSID clsid{};
  std::string name;
  std::string description;
  std::string vendor;
  unsigned version_major = 0;
  unsigned version_minor = 0;
  std::optional<HandlerDescription> handler;
  std::optional<MeterDescription> meter;
  std::optional<GroupDescription> group;
};

// DescribeComponents asks every component of the package what it is, in the order of the table.
std::vector<ComponentDescription> DescribeComponents(IOmbrelComponentPackage& package);

// NewComponent makes an instance of a class; HostError when the plug-in does not.
InterfacePtr<IArboUnknown> NewComponent(IOmbrelComponentPackage& package, const CLSID& clsid);

}  // namespace flow::host
