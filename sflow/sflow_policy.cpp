#include "sflow/sflow_policy.h"

namespace flow {
namespace {

struct Switch {
  const char* key;
  bool default_value;
  bool SFlowPolicy::*member;
};

constexpr Switch kSwitches[] = {
    {"MeterHosts", true, &SFlowPolicy::fMeterHosts},
    {"MeterSubnets", true, &SFlowPolicy::fMeterSubnets},
    {"MeterApplications", true, &SFlowPolicy::fMeterApplications},
    {"MeterNetflowInterfaces", true, &SFlowPolicy::fMeterNetflowInterfaces},
    {"MeterNetflowSources", true, &SFlowPolicy::fMeterNetflowSources},
    {"MergeMultipleSources", true, &SFlowPolicy::fMergeMultipleSources},
    {"MatchBiDirectionalFlows", true, &SFlowPolicy::fMatchBiDirectionalFlows},
    {"UseRouterTimestamps", true, &SFlowPolicy::fUseRouterTimestamps},
    {"MergeHTTP", true, &SFlowPolicy::fMergeHTTP},
    {"MergeHTTPS", true, &SFlowPolicy::fMergeHTTPS},
    {"MergeDNS", true, &SFlowPolicy::fMergeDNS},
    {"IgnoreESP", true, &SFlowPolicy::fIgnoreESP},
    {"MeterHomeNetwork", true, &SFlowPolicy::fMeterHomeNetwork},
    {"MeterBothPorts", true, &SFlowPolicy::fMeterBothPorts},
    {"MeterTCPConnections", false, &SFlowPolicy::fMeterTCPConnections},
    {"MeterAppConnections", false, &SFlowPolicy::fMeterAppConnections},
    {"MeterVLAN", true, &SFlowPolicy::fMeterVLAN},
    {"MeterMAC", true, &SFlowPolicy::fMeterMAC},
};

}  // namespace

bool SFlowPolicy::Load(const XMLNode& policy, IOmbrelContainer* site) {
  for (const Switch& row : kSwitches) {
    this->*row.member = policy.GetBoolProperty(row.key, row.default_value);
  }
  return interface_filter.LoadUnchecked(policy, site) && host_filter.Load(policy, site);
}

}  // namespace flow
