// SPDX-License-Identifier: Apache-2.0
#include "host/border/component_catalog.h"

#include <fmt/format.h>

#include <span>

#include "flowhandlers/identifiers.h"
#include "host/base/error.h"
#include "host/base/guid_text.h"

namespace flow::host {
namespace {

std::optional<HandlerDescription> DescribeHandler(IArboUnknown& component) {
  const auto handler = Query<IOmbrelProtHandler>(component, IID_IOmbrelProtHandler);
  if (!handler) return std::nullopt;
  HandlerDescription answer;
  char* name = nullptr;
  handler->GetProtID(&answer.protocol, &name);
  answer.name = TakeText(name);

  const auto client = Query<IOmbrelAccessPointClient>(component, IID_IOmbrelAccessPointClient);
  unsigned short count = 0;
  ACCPT_T* table = nullptr;
  if (client && client->GetPrefAPHosts(&count, &table) == kStatusOk && table != nullptr) {
    for (const ACCPT_T& entry : std::span(table, count)) {
      if (entry.parent_protocol != nullptr && *entry.parent_protocol == UPID_UDP) {
        answer.ports.push_back(entry.port);
      }
    }
  }
  return answer;
}

std::optional<MeterDescription> DescribeMeter(IArboUnknown& component) {
  const auto meter = Query<IOmbrelSimpleCounter>(component, IID_IOmbrelSimpleCounter);
  if (!meter) return std::nullopt;
  MeterDescription answer;
  meter->GetAttachmentProtID(&answer.protocol);
  meter->IsFlowCounter(&answer.updates_flows);
  answer.listens_on_channels =
      static_cast<bool>(Query<IOmbrelChannelListener>(component, IID_IOmbrelChannelListener));
  return answer;
}

std::vector<GroupMeterDescription> DescribeGroupMeters(IOmbrelCounterGroupHost& group) {
  std::vector<GroupMeterDescription> meters;
  unsigned short count = 0;
  VARDEFS_T* table = nullptr;
  if (group.GetVariableDefs(&count, &table) != kStatusOk || table == nullptr) return meters;
  for (const VARDEFS_T& entry : std::span(table, count)) {
    meters.push_back({entry.varId, entry.varType, entry.name == nullptr ? "" : entry.name,
                      entry.units == nullptr ? "" : entry.units});
  }
  return meters;
}

std::optional<GroupDescription> DescribeGroup(IArboUnknown& component) {
  const auto group = Query<IOmbrelCounterGroupHost>(component, IID_IOmbrelCounterGroupHost);
  if (!group) return std::nullopt;
  GroupDescription answer;
  char* text = nullptr;
  unsigned short top_n_count = 0;
  group->get_GUID(&answer.guid);
  group->get_Name(&text);
  answer.name = TakeText(std::exchange(text, nullptr));
  group->get_Description(&text);
  answer.description = TakeText(text);
  group->get_EnableTopN(&answer.top_n);
  group->get_TopNCount(&top_n_count);
  answer.top_n_count = top_n_count;
  group->get_BucketSizeMS(&answer.bucket_ms);
  group->get_TrackHiWater(&answer.track_high);
  group->get_TrackLoWater(&answer.track_low);
  answer.meters = DescribeGroupMeters(*group);
  return answer;
}

ComponentDescription Describe(IOmbrelComponentPackage& package, const CLSID& clsid) {
  ComponentDescription answer;
  answer.clsid = clsid;
  const auto component = NewComponent(package, clsid);
  if (const auto plugin = Query<IOmbrelPlugin>(*component, IID_IOmbrelPlugin)) {
    char* name = nullptr;
    char* description = nullptr;
    char* vendor = nullptr;
    plugin->GetPluginID(&name, &description, &vendor, &answer.version_major, &answer.version_minor);
    answer.name = TakeText(name);
    answer.description = TakeText(description);
    answer.vendor = TakeText(vendor);
  }
  answer.handler = DescribeHandler(*component);
  answer.meter = DescribeMeter(*component);
  answer.group = DescribeGroup(*component);
  return answer;
}

}  // namespace

std::vector<ComponentDescription> DescribeComponents(IOmbrelComponentPackage& package) {
  std::vector<ComponentDescription> components;
  unsigned int count = 0;
  package.GetComponentCount(&count);
  for (unsigned int i = 0; i < count; ++i) {
    CLSID clsid{};
    if (package.GetComponentCLSID(i, &clsid) == kStatusOk) {
      components.push_back(Describe(package, clsid));
    }
  }
  return components;
}

InterfacePtr<IArboUnknown> NewComponent(IOmbrelComponentPackage& package, const CLSID& clsid) {
  IArboClassFactory* handed = nullptr;
  const Status found = package.GetClassFactory(clsid, &handed);
  const InterfacePtr<IArboClassFactory> factory(handed);
  IArboUnknown* object = nullptr;
  if (found != kStatusOk || !factory || factory->NewInstance(&object) != kStatusOk ||
      object == nullptr) {
    throw HostError(
        fmt::format("the plug-in makes no instance of its component {{{}}}", GuidText(clsid)));
  }
  return InterfacePtr<IArboUnknown>(object);
}

}  // namespace flow::host
