// The sFlow meter's policy: what SFlowCounterPolicy.xml sets. It is read once, when the meter gets
// its site; before that every switch is off.
#pragma once

#include "config/filters.h"
#include "plugin/host_interfaces.h"
#include "util/xmlParser.h"

namespace flow {

struct SFlowPolicy {
  // Load reads the file's "Policy" element, which may be empty: every setting then takes its
  // default. False when a filter has both an include and an exclude list; the log says which.
  bool Load(const XMLNode& policy, IOmbrelContainer* site);

  bool fMeterHosts = false;
  bool fMeterSubnets = false;  // accepted, nothing acts on it
  bool fMeterApplications = false;
  bool fMeterNetflowInterfaces = false;
  bool fMeterNetflowSources = false;
  bool fMergeMultipleSources = false;
  bool fMatchBiDirectionalFlows = false;
  bool fUseRouterTimestamps = false;  // accepted, nothing acts on it
  bool fMergeHTTP = false;
  bool fMergeHTTPS = false;
  bool fMergeDNS = false;
  bool fIgnoreESP = false;         // accepted, nothing acts on it
  bool fMeterHomeNetwork = false;  // accepted, nothing acts on it
  bool fMeterBothPorts = false;
  bool fMeterTCPConnections = false;
  bool fMeterAppConnections = false;
  bool fMeterVLAN = false;
  bool fMeterMAC = false;

  InterfaceFilter interface_filter;
  HostFilter host_filter;
};

}  // namespace flow
