// SPDX-License-Identifier: Apache-2.0
// The switches of the NetFlow policy.
#pragma once

#include "config/netflow_policy.h"

namespace flow::test {

struct PolicySwitch {
  const char* key;
  bool default_value;
  bool NetflowPolicy::*member;
};
#define FLOW_SWITCH_AS(member, key, absent, ...) {#key, absent, &NetflowPolicy::member},
#define FLOW_NUMBER(...)
#define FLOW_TEXT(...)
#define FLOW_LIST(...)
inline constexpr PolicySwitch kPolicySwitches[] = {
#include "plugin/netflow_settings.def"
};

}  // namespace flow::test
