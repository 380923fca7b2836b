// The switches of the NetFlow policy, as an operator's manual lists them.
#pragma once

#include "config/netflow_policy.h"

namespace flow::test {

struct PolicySwitch {
  const char* key;
  bool default_value;
  bool NetflowPolicy::*member;
};
inline constexpr PolicySwitch kPolicySwitches[] = {
    {"MeterHosts", true, &NetflowPolicy::fMeterHosts},
    {"MeterSubnets", true, &NetflowPolicy::fMeterSubnets},
    {"MeterApplications", true, &NetflowPolicy::fMeterApplications},
    {"MeterNetflowInterfaces", true, &NetflowPolicy::fMeterNetflowInterfaces},
    {"MeterNetflowSources", true, &NetflowPolicy::fMeterNetflowSources},
    {"MergeMultipleSources", true, &NetflowPolicy::fMergeMultipleSources},
    {"MatchBiDirectionalFlows", true, &NetflowPolicy::fMatchBiDirectionalFlows},
    {"UseRouterTimestamps", true, &NetflowPolicy::fUseRouterTimestamps},
    {"MergeHTTP", true, &NetflowPolicy::fMergeHTTP},
    {"MergeHTTPS", true, &NetflowPolicy::fMergeHTTPS},
    {"MergeDNS", true, &NetflowPolicy::fMergeDNS},
    {"IgnoreESP", true, &NetflowPolicy::fIgnoreESP},
    {"MeterHomeNetwork", true, &NetflowPolicy::fMeterHomeNetwork},
    {"MeterBothPorts", true, &NetflowPolicy::fMeterBothPorts},
    {"MeterTCPConnections", false, &NetflowPolicy::fMeterTCPConnections},
    {"MeterAppConnections", false, &NetflowPolicy::fMeterAppConnections},
    {"MeterNBAR", true, &NetflowPolicy::fMeterNBAR},
    {"MeterVRF", true, &NetflowPolicy::fMeterVRF},
    {"MeterASN", true, &NetflowPolicy::fMeterASN},
    {"MeterMasks", true, &NetflowPolicy::fMeterMasks},
    {"MeterIPNextHop", true, &NetflowPolicy::fMeterIPNextHop},
    {"MeterBGPNextHop", true, &NetflowPolicy::fMeterBGPNextHop},
    {"MeterMAC", true, &NetflowPolicy::fMeterMAC},
    {"Meterv4v6", true, &NetflowPolicy::fMeterv4v6},
    {"CheckPacketsForCorruption", false, &NetflowPolicy::fCheckPacketsForCorruption},
    {"LogTemplateMessages", true, &NetflowPolicy::fLogTemplateMessages},
    {"EnableShimTunnel", false, &NetflowPolicy::fEnableShimTunnel},
    {"AddEdges", false, &NetflowPolicy::fAddEdges},
    {"MeterLinkAS", false, &NetflowPolicy::fMeterLinkAS},
    {"UsePostNATAddresses", true, &NetflowPolicy::fUsePostNATAddresses},
    {"MeterZeroFlows", false, &NetflowPolicy::fMeterZeroFlows},
    {"AllowVariableLengthStrings", false, &NetflowPolicy::fAllowVariableStrings},
    {"TagFlowsWithUserID", false, &NetflowPolicy::fTagFlowsWithUserID},
    {"MeterAppID", true, &NetflowPolicy::fMeterAppID},
    {"MeterUserID", true, &NetflowPolicy::fMeterUserID},
    {"IgnoreAllEgress", false, &NetflowPolicy::fIgnoreAllEgress},
    {"TagFlowsWithDirection", false, &NetflowPolicy::fTagFlowsWithDirection},
    {"IgnoreOutCounts", false, &NetflowPolicy::fIgnoreOutCounts},
};

}  // namespace flow::test
