// SPDX-License-Identifier: Apache-2.0
// The sFlow meter's policy: what SFlowCounterPolicy.xml sets. It is read once, when the meter gets
// its site; before that every switch is off.
#pragma once

#include "config/filters.h"
#include "flowhandlers/host_interfaces.h"
#include "util/xmlParser.h"

namespace flow {

struct SFlowPolicy {
  // Load reads the file's "Policy" element, which may be empty: every setting then takes its
  // default. False when a filter has both an include and an exclude list; the log says which.
  bool Load(const XMLNode& policy, IOmbrelContainer* site);

  // Every switch of the table, plugin/sflow_settings.def.
#define FLOW_SWITCH_AS(member, ...) bool member = false;
#define FLOW_LIST(...)
#include "plugin/sflow_settings.def"

  InterfaceFilter interface_filter;
  HostFilter host_filter;
  [[nodiscard]] bool HasFilters() const noexcept {
    return interface_filter.Active() || host_filter.Active();
  }
};

}  // namespace flow
