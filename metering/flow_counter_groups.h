// SPDX-License-Identifier: Apache-2.0
// The two counter groups that the library itself defines for the host: exporters, and exporters'
// interfaces. The components hold no state; the host asks them for the group's identity, settings
// and meters.
#pragma once

#include "flowhandlers/counter_groups.h"
#include "plugin/component.h"

namespace flow {

// All that a counter group tells the host.
struct CounterGroup {
  PluginIdentity identity;
  GUID guid;
  const char* name;
  const char* description;
  unsigned short top_n_count;
  unsigned int bucket_size_ms;
  unsigned int track_hi_water;
  unsigned int track_lo_water;
  const VARDEFS_T* meters;
  unsigned short meter_count;
};

extern const CounterGroup kExporterGroup;
extern const CounterGroup kInterfaceGroup;

// A component that defines one counter group.
template <const CounterGroup& kGroup>
class CounterGroupComponent
    : public CArboComponent<CounterGroupComponent<kGroup>, IOmbrelCounterGroupHost> {
 public:
  static constexpr const PluginIdentity& kIdentity = kGroup.identity;

  // IOmbrelPlugin: a group needs no site.
  Status AttachSite(IOmbrelContainer*) override { return kStatusNotSupported; }
  Status DetachSite() override { return kStatusNotSupported; }

  // IOmbrelCounterGroupHost
  Status get_GUID(IID* out) override { return Give(out, kGroup.guid); }
  Status get_Name(char** out) override { return GiveText(out, kGroup.name); }
  Status get_Description(char** out) override { return GiveText(out, kGroup.description); }
  Status get_EnableTopN(bool* out) override { return Give(out, true); }
  Status get_TopNCount(unsigned short* out) override { return Give(out, kGroup.top_n_count); }
  Status get_BucketSizeMS(unsigned int* out) override { return Give(out, kGroup.bucket_size_ms); }
  Status get_TrackHiWater(unsigned int* out) override { return Give(out, kGroup.track_hi_water); }
  Status get_TrackLoWater(unsigned int* out) override { return Give(out, kGroup.track_lo_water); }
  Status GetVariableDefs(unsigned short* count, VARDEFS_T** definitions) override {
    if (count == nullptr || definitions == nullptr) return kStatusNullOutput;
    *count = kGroup.meter_count;
    *definitions = const_cast<VARDEFS_T*>(kGroup.meters);  // the host only reads it
    return kStatusOk;
  }
  Status LoadInitialData(IOmbrelContainer*) override { return kStatusNotSupported; }
  Status get_TrafTableName(char**) override { return kStatusNotSupported; }

 private:
  template <class T>
  static Status Give(T* out, T value) {
    if (out == nullptr) return kStatusNullOutput;
    *out = value;
    return kStatusOk;
  }
  static Status GiveText(char** out, const char* text) {
    return out == nullptr ? kStatusNullOutput : Give(out, NewText(text));
  }
};

}  // namespace flow

using CPICGNetflowGen = flow::CounterGroupComponent<flow::kExporterGroup>;
using CPICGNetflowIntf = flow::CounterGroupComponent<flow::kInterfaceGroup>;
