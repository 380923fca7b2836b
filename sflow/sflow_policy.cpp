// SPDX-License-Identifier: Apache-2.0
#include "sflow/sflow_policy.h"

namespace flow {
namespace {

struct Switch {
  const char* key;
  bool absent;
  bool SFlowPolicy::*member;
};

#define FLOW_SWITCH_AS(member, key, absent, ...) {#key, absent, &SFlowPolicy::member},
#define FLOW_LIST(...)
constexpr Switch kSwitches[] = {
#include "plugin/sflow_settings.def"
};

}  // namespace

bool SFlowPolicy::Load(const XMLNode& policy, IOmbrelContainer* site) {
  for (const Switch& row : kSwitches) {
    this->*row.member = policy.GetBoolProperty(row.key, row.absent);
  }
  return interface_filter.LoadUnchecked(policy, site) && host_filter.Load(policy, site);
}

}  // namespace flow
