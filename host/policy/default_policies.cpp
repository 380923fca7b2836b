#include "host/policy/default_policies.h"

#include <fmt/format.h>

#include <cerrno>
#include <fstream>
#include <span>

namespace flow::host {
namespace {

struct Setting {
  std::string_view key;
  std::string_view value;  // the default
  std::string_view comment;
};

// In the order in which the NetFlow meter reads them.
constexpr Setting kNetflowSettings[] = {
    {"MeterHosts", "true", "count the traffic of every host"},
    {"MeterSubnets", "true", "count by source and destination subnet"},
    {"MeterApplications", "true", "count by port and by ICMP, GRE, ESP"},
    {"MeterNetflowInterfaces", "true", "count by exporter and interface"},
    {"MeterNetflowSources", "true", "count by exporter"},
    {"MergeMultipleSources", "true", "one flow whichever exporters and interfaces saw it"},
    {"MatchBiDirectionalFlows", "true", "one flow for both directions of a conversation"},
    {"UseRouterTimestamps", "true", "flow times from the records, else durations only"},
    {"MergeHTTP", "true", "one flow for all client ports of a web server (80)"},
    {"MergeHTTPS", "true", "the same for port 443"},
    {"MergeDNS", "true", "the same for port 53"},
    {"IgnoreESP", "true", "kept for older policies; without effect"},
    {"MeterHomeNetwork", "true", "kept for older policies; without effect"},
    {"MeterBothPorts", "true", "without a well-known port count both; else the smaller one"},
    {"MeterTCPConnections", "false", "count TCP connections per host"},
    {"MeterAppConnections", "false", "count TCP connections per application"},
    {"MeterNBAR", "true", "count by application tag (needs MeterBothPorts off)"},
    {"MeterVRF", "true", "count by routing instance"},
    {"MeterASN", "true", "count by AS number"},
    {"MeterMasks", "true", "count by prefix (v9 and IPFIX)"},
    {"MeterIPNextHop", "true", "count by IP next hop (v9 and IPFIX)"},
    {"MeterBGPNextHop", "true", "count by BGP next hop (v9 and IPFIX)"},
    {"MeterMAC", "true", "count by MAC address"},
    {"Meterv4v6", "true", "count IPv4 against IPv6"},
    {"CheckPacketsForCorruption", "false", "drop records with impossible counts or times"},
    {"LogTemplateMessages", "true", "log templates as they arrive and are shared"},
    {"EnableShimTunnel", "false", "accept datagrams behind a forwarder's 12-byte shim"},
    {"FilterInterfacesInclude", "", "only these, as in 10.0.0.1_3,10.0.0.1_4; not with the next"},
    {"FilterInterfacesExclude", "", "not the flows between two of these"},
    {"FilterHostsInclude", "",
     "only flows of these hosts, as in 10.0.0.1,10.0.0.2; not with the next"},
    {"FilterHostsExclude", "", "not the flows between two of these hosts"},
    {"IgnoreV9EgressFromDevices", "", "exporters whose egress counts are ignored"},
    {"HomeASNumbers", "", "home AS numbers, as in 64500,64501; they decide what is home"},
    {"AddEdges", "false", "kept for older policies; without effect"},
    {"MeterLinkAS", "false", "count by AS and interface"},
    {"UsePostNATAddresses", "true", "take addresses after translation where both are given"},
    {"TemplateDumpIntervalSeconds", "0", "write the templates to a file this often; 0 never"},
    {"MeterZeroFlows", "false", "count flows alone, for exporters without byte counts"},
    {"AllowVariableLengthStrings", "false", "decode variable-length fields"},
    {"TagFlowsWithUserID", "false", "keep the vendor's text with the flow (with MeterZeroFlows)"},
    {"MeterAppID", "true", "count by the vendor's application text"},
    {"MeterUserID", "true", "count by the vendor's user text"},
    {"AddL2AccountingBytes", "0", "bytes added per packet, as in 18 for Ethernet"},
    {"IgnoreAllEgress", "false", "drop records that are marked as egress"},
    {"ReloadConfigCheckSeconds", "0",
     "look for a change of this file this often, 60 or more; 0 never"},
    {"TagFlowsWithDirection", "false", "tag flows as internal, internet or transit"},
    {"HomeASNumbersFile", "", "suffix of a feed of home AS numbers: incoming_N_SUFFIX"},
    {"IgnoreOutCounts", "false", "ignore the outgoing counts of v9 records that have both"},
};

constexpr Setting kSflowSettings[] = {
    {"MeterHosts", "true", "count the traffic of every host"},
    {"MeterSubnets", "true", "kept for older policies; without effect"},
    {"MeterApplications", "true", "count by port and by ICMP, GRE, ESP"},
    {"MeterNetflowInterfaces", "true", "count by agent and interface"},
    {"MeterNetflowSources", "true", "count by agent"},
    {"MergeMultipleSources", "true", "one flow whichever agents and interfaces saw it"},
    {"MatchBiDirectionalFlows", "true", "one flow for both directions of a conversation"},
    {"UseRouterTimestamps", "true", "kept for older policies; without effect"},
    {"MergeHTTP", "true", "one flow for all client ports of a web server (80)"},
    {"MergeHTTPS", "true", "the same for port 443"},
    {"MergeDNS", "true", "the same for port 53"},
    {"IgnoreESP", "true", "kept for older policies; without effect"},
    {"MeterHomeNetwork", "true", "kept for older policies; without effect"},
    {"MeterBothPorts", "true", "without a well-known port count both; else the smaller one"},
    {"MeterTCPConnections", "false", "count TCP connections per host"},
    {"MeterAppConnections", "false", "count TCP connections per application"},
    {"MeterVLAN", "true", "count by VLAN"},
    {"MeterMAC", "true", "count by MAC address"},
    {"FilterInterfacesInclude", "", "only these, as in 0A.00.00.01_00000003; not with the next"},
    {"FilterInterfacesExclude", "", "not the samples between two of these"},
    {"FilterHostsInclude", "", "only samples of these hosts, as in 10.0.0.1; not with the next"},
    {"FilterHostsExclude", "", "not the samples between two of these hosts"},
};

constexpr std::string_view kNetflowSiblings = R"(
  <!-- Templates of exporters that never send theirs: ids of the fields in order.
  <StaticTemplates>
    <Template id="256" name="border router"><Fields>8,12,7,11,4,1,2</Fields></Template>
  </StaticTemplates>
  -->

  <!-- Sampling rates of exporters that do not tell theirs; router 0.0.0.0 is for all others.
  <SamplingRates>
    <Rate router="10.0.0.1" rate="100"/>
  </SamplingRates>
  -->
)";

struct Policy {
  std::string_view file_name;
  std::string_view heading;
  std::span<const Setting> settings;
  std::string_view siblings;  // what stands beside the settings
};

constexpr Policy kPolicies[] = {
    {"NetflowCounterPolicy.xml", "How NetFlow and IPFIX records are metered.", kNetflowSettings,
     kNetflowSiblings},
    {"SFlowCounterPolicy.xml", "How sFlow samples are metered.", kSflowSettings, ""},
};

}  // namespace

std::string DefaultPolicy(std::string_view file_name) {
  for (const Policy& policy : kPolicies) {
    if (policy.file_name != file_name) continue;
    std::string text = fmt::format(
        "<?xml version=\"1.0\"?>\n"
        "<!-- {} A switch is on when its text is \"true\"; lists are separated by commas\n"
        "     without blanks; an empty setting has its default. -->\n"
        "<OmbrelPluginConfiguration>\n"
        "  <Policy>\n",
        policy.heading);
    for (const Setting& setting : policy.settings) {
      const std::string element = fmt::format("<{0}>{1}</{0}>", setting.key, setting.value);
      text += fmt::format("    {:<58} <!-- {} -->\n", element, setting.comment);
    }
    text += fmt::format("  </Policy>\n{}</OmbrelPluginConfiguration>\n", policy.siblings);
    return text;
  }
  return {};
}

std::vector<std::string_view> PolicyFileNames() {
  std::vector<std::string_view> names;
  for (const Policy& policy : kPolicies) names.push_back(policy.file_name);
  return names;
}

bool WriteDefaultPolicy(const std::filesystem::path& path, std::error_code* error) {
  const std::string text = DefaultPolicy(path.filename().string());
  if (text.empty()) {
    *error = std::make_error_code(std::errc::no_such_file_or_directory);
    return false;
  }
  std::filesystem::create_directories(path.parent_path(), *error);
  if (*error) return false;
  // Written aside and renamed: another run must never read half a policy.
  std::filesystem::path draft = path;
  draft += ".new";
  errno = 0;
  std::ofstream out(draft, std::ios::trunc);
  out << text;
  out.close();
  if (!out) {
    *error = std::error_code(errno != 0 ? errno : EIO, std::generic_category());
    return false;
  }
  std::filesystem::rename(draft, path, *error);
  return !*error;
}

}  // namespace flow::host
