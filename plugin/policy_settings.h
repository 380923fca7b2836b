// SPDX-License-Identifier: Apache-2.0
// The settings of the two policy files, as the host and the manual know them. They are written down
// in netflow_settings.def and sflow_settings.def.
#pragma once

#include <string_view>

namespace flow {

enum class SettingKind { kSwitch, kNumber, kText, kList };

// The tables of the manual.
enum class SettingGroup { kCounted, kFlows, kIntake, kRunning, kUnused };

struct PolicySetting {
  std::string_view key;
  SettingKind kind;
  std::string_view absent;   // what the library takes for a setting that is absent or empty
  std::string_view written;  // what flowhost's policies say
  SettingGroup group;
  std::string_view effect;
};

#define FLOW_SWITCH_AS(member, key, absent, written, group, effect) \
  {#key, SettingKind::kSwitch, #absent, #written, SettingGroup::group, effect},
#define FLOW_NUMBER(key, absent, written, group, effect) \
  {#key, SettingKind::kNumber, #absent, #written, SettingGroup::group, effect},
#define FLOW_TEXT(key, group, effect) \
  {#key, SettingKind::kText, "", "", SettingGroup::group, effect},
#define FLOW_LIST(key, group, effect) \
  {#key, SettingKind::kList, "", "", SettingGroup::group, effect},
inline constexpr PolicySetting kNetflowSettings[] = {
#include "plugin/netflow_settings.def"
};

#define FLOW_SWITCH_AS(member, key, absent, written, group, effect) \
  {#key, SettingKind::kSwitch, #absent, #written, SettingGroup::group, effect},
#define FLOW_LIST(key, group, effect) \
  {#key, SettingKind::kList, "", "", SettingGroup::group, effect},
inline constexpr PolicySetting kSFlowSettings[] = {
#include "plugin/sflow_settings.def"
};

}  // namespace flow
