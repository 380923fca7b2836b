#include "config/netflow_policy.h"

#include <cstdlib>
#include <span>

#include "plugin/site_log.h"
#include "util/str_tokenizer.h"

namespace flow {
namespace {

struct Switch {
  const char* key;
  bool default_value;
  bool NetflowPolicy::*member;
};

constexpr Switch kCounterSwitches[] = {
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
};

constexpr Switch kFlowSwitches[] = {
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

void LoadSwitches(const XMLNode& policy, std::span<const Switch> switches, NetflowPolicy* out) {
  for (const Switch& row : switches) {
    out->*row.member = policy.GetBoolProperty(row.key, row.default_value);
  }
}

}  // namespace

void NetflowPolicy::LoadCounterSwitches(const XMLNode& policy) {
  LoadSwitches(policy, kCounterSwitches, this);
}

bool NetflowPolicy::LoadFilters(const XMLNode& policy, IOmbrelContainer* site) {
  return interface_filter.Load(policy, site) && host_filter.Load(policy, site);
}

void NetflowPolicy::LoadIgnoredEgressRouters(const XMLNode& policy, IOmbrelContainer* site) {
  constexpr char kKey[] = "IgnoreV9EgressFromDevices";
  IgnoreEgressRouterSet.Clear();
  const char* const list = ListText(policy, kKey);
  if (list == nullptr) return;
  LoadHosts(list, kKey, site, &IgnoreEgressRouterSet);
  if (IgnoreEgressRouterSet.Empty()) return;
  Log(site, kLogProgress,
      std::string("[v9 EGRESS EXCLUDE] will ignore Egress counters from router ") + list +
          ", router count = " + std::to_string(IgnoreEgressRouterSet.Size()));
}

void NetflowPolicy::LoadHomeAsNumbers(const XMLNode& policy, IOmbrelContainer* site) {
  fHomeASNumbers = false;
  HomeASSet.Clear();
  const StrTokenizer items(policy.GetStringProperty("HomeASNumbers", ""), ",");
  for (unsigned long i = 0; i < items.GetCount(); ++i) {
    const unsigned long number = std::strtoul(items.GetToken(i), nullptr, 0);
    HomeASSet.Insert(static_cast<std::uint32_t>(number));
    fHomeASNumbers = true;
    Log(site, kLogProgress, "NETFLOW: HOME AS ADDED " + std::to_string(number));
  }
  Log(site, kLogProgress,
      "NETFLOW: HOME AS total number added = " + std::to_string(HomeASSet.Size()));
}

void NetflowPolicy::LoadFlowSwitches(const XMLNode& policy, IOmbrelContainer* site) {
  TemplateDumpIntervalSeconds = policy.GetIntProperty("TemplateDumpIntervalSeconds", 0);
  LoadSwitches(policy, kFlowSwitches, this);
  if (fMergeHTTP || fMergeHTTPS || fMergeDNS) {
    fTerminateFlowDisabled = true;
    Log(site, kLogProgress,
        "TerminateFlow disabled due to user configuration fMergeHTTP/HTTPS/DNS");
  }
  AddL2AccountingBytes = policy.GetIntProperty("AddL2AccountingBytes", 0);
  if (AddL2AccountingBytes > 0) {
    Log(site, kLogProgress,
        "L2 Ethernet Adjust Bytes: Adding x bytes per packet " +
            std::to_string(AddL2AccountingBytes));
  }
}

void NetflowPolicy::LoadFeedName(const XMLNode& policy) {
  HomeASNumbersFile = policy.GetStringProperty("HomeASNumbersFile", "");
}

}  // namespace flow
