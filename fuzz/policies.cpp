// SPDX-License-Identifier: Apache-2.0
#include "fuzz/policies.h"

#include "plugin/policy_settings.h"

namespace flow::fuzz {
namespace {

bool IsOffElse(const PolicySetting& setting) {
  return setting.kind == SettingKind::kSwitch && setting.absent == "false" &&
         setting.group != SettingGroup::kUnused;
}

// Every switch on, so that a new one is fuzzed as well, but for those that hide what others do: of
// two equal settings the first counts.
std::string EverythingOn() {
  std::string settings =
      "<MergeMultipleSources>false</MergeMultipleSources><MeterZeroFlows>false</MeterZeroFlows>"
      "<IgnoreAllEgress>false</IgnoreAllEgress><IgnoreOutCounts>false</IgnoreOutCounts>"
      "<HomeASNumbers>1,2</HomeASNumbers>";
  for (const PolicySetting& setting : kNetflowSettings) {
    if (!IsOffElse(setting)) continue;
    const std::string key(setting.key);
    settings += "<" + key + ">true</" + key + ">";
  }
  for (const PolicySetting& setting : kSFlowSettings) {
    if (!IsOffElse(setting) ||
        settings.find("<" + std::string(setting.key) + ">") != std::string::npos) {
      continue;
    }
    const std::string key(setting.key);
    settings += "<" + key + ">true</" + key + ">";
  }
  return settings;
}
constexpr char kBothPortsOff[] =
    "<MeterBothPorts>false</MeterBothPorts><MeterZeroFlows>true</MeterZeroFlows>"
    "<TagFlowsWithUserID>true</TagFlowsWithUserID><IgnoreAllEgress>true</IgnoreAllEgress>"
    "<UseRouterTimestamps>false</UseRouterTimestamps><MergeHTTP>false</MergeHTTP>"
    "<MergeHTTPS>false</MergeHTTPS><MergeDNS>false</MergeDNS>"
    "<MatchBiDirectionalFlows>false</MatchBiDirectionalFlows>"
    "<AllowVariableLengthStrings>true</AllowVariableLengthStrings>";
constexpr char kFiltered[] =
    "<FilterHostsExclude>10.0.0.1,10.0.0.2</FilterHostsExclude>"
    "<FilterInterfacesExclude>192.0.2.0_1,192.0.2.0_2</FilterInterfacesExclude>";
constexpr char kStaticTemplates[] =
    "<StaticTemplates><Template id=\"256\" name=\"s\"><Fields>8,12,4,7,11,1,2,32861</Fields>"
    "</Template><Template id=\"1\" name=\"one\"><Fields>8,12,1</Fields></Template>"
    "</StaticTemplates><SamplingRates><Rate router=\"0.0.0.0\" rate=\"100\"/></SamplingRates>";

}  // namespace

const Policy& PolicyOf(std::uint8_t number) {
  static const Policy policies[kPolicies] = {{"", ""},
                                             {EverythingOn(), ""},
                                             {kBothPortsOff, kStaticTemplates},
                                             {kFiltered, kStaticTemplates}};
  return policies[number % kPolicies];
}

}  // namespace flow::fuzz
