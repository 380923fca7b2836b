// The NetFlow meter's policy: every switch, number, list and filter that NetflowCounterPolicy.xml
// sets. A load overwrites all of them; before the first one every switch is off.
#pragma once

#include <cstdint>
#include <string>

#include "config/filters.h"
#include "plugin/host_interfaces.h"
#include "util/flat_set.h"
#include "util/xmlParser.h"

namespace flow {

struct NetflowPolicy {
  // The steps of a load, in their order. `policy` is the file's "Policy" element, which may be
  // empty: every setting then takes its default. What they find goes to the site's log.
  void LoadCounterSwitches(const XMLNode& policy);
  bool LoadFilters(const XMLNode& policy, IOmbrelContainer* site);  // false: lists conflict
  void LoadIgnoredEgressRouters(const XMLNode& policy, IOmbrelContainer* site);
  void LoadHomeAsNumbers(const XMLNode& policy, IOmbrelContainer* site);
  void LoadFlowSwitches(const XMLNode& policy, IOmbrelContainer* site);
  void LoadFeedName(const XMLNode& policy);

  // Counters.
  bool fMeterHosts = false;
  bool fMeterSubnets = false;
  bool fMeterApplications = false;
  bool fMeterNetflowInterfaces = false;
  bool fMeterNetflowSources = false;
  bool fMergeMultipleSources = false;
  bool fMatchBiDirectionalFlows = false;
  bool fUseRouterTimestamps = false;
  bool fMergeHTTP = false;
  bool fMergeHTTPS = false;
  bool fMergeDNS = false;
  bool fIgnoreESP = false;         // accepted, nothing acts on it
  bool fMeterHomeNetwork = false;  // accepted, nothing acts on it
  bool fMeterBothPorts = false;
  bool fMeterTCPConnections = false;
  bool fMeterAppConnections = false;
  bool fMeterNBAR = false;
  bool fMeterVRF = false;
  bool fMeterASN = false;
  bool fMeterMasks = false;
  bool fMeterIPNextHop = false;
  bool fMeterBGPNextHop = false;
  bool fMeterMAC = false;
  bool fMeterv4v6 = false;
  bool fCheckPacketsForCorruption = false;
  bool fLogTemplateMessages = false;
  bool fEnableShimTunnel = false;

  // Flows and decoding.
  bool fAddEdges = false;  // accepted, nothing acts on it
  bool fMeterLinkAS = false;
  bool fUsePostNATAddresses = false;
  bool fMeterZeroFlows = false;
  bool fAllowVariableStrings = false;
  bool fTagFlowsWithUserID = false;
  bool fMeterAppID = false;
  bool fMeterUserID = false;
  bool fIgnoreAllEgress = false;
  bool fTagFlowsWithDirection = false;
  bool fIgnoreOutCounts = false;

  // Merged services share one flow, so flows are never closed once a merge has been on: no load
  // clears this.
  bool fTerminateFlowDisabled = false;

  int TemplateDumpIntervalSeconds = 0;  // 0: no periodic dump
  int AddL2AccountingBytes = 0;         // per packet
  int ReloadConfigCheckSeconds = 0;

  InterfaceFilter interface_filter;
  HostFilter host_filter;
  FlatSet<std::uint32_t> IgnoreEgressRouterSet;  // exporters, host byte order

  // Home AS numbers. The set may also come from the feed, but is consulted only while the policy
  // itself lists a number.
  bool fHomeASNumbers = false;
  FlatSet<std::uint32_t> HomeASSet;
  std::string HomeASNumbersFile;  // name of the feed; empty: none

  [[nodiscard]] bool IsHomeAs(std::uint32_t as_number) const noexcept {
    return HomeASSet.Contains(as_number);
  }
};

}  // namespace flow
