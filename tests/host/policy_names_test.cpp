// SPDX-License-Identifier: Apache-2.0
// What check-config says about the names in a policy file, and what the plug-in makes of the files
// that flowhost writes.

#include "host/policy/policy_names.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "config/netflow_policy.h"
#include "host/policy/default_policies.h"
#include "sflow/sflow_policy.h"

namespace flow::host {
namespace {

using testing::ElementsAreArray;
using testing::IsEmpty;

std::vector<std::string> Remarks(std::string_view file_name, std::string_view text) {
  std::vector<std::string> remarks;
  for (const PolicyRemark& remark : CheckPolicyNames(file_name, text)) {
    remarks.push_back(std::to_string(remark.line) + " " + remark.text);
  }
  return remarks;
}

TEST(PolicyNames, AreRemarkedOn) {
  const std::string no_setting = " there is no setting ";
  const std::string no_effect = "; it has no effect";
  const struct {
    const char* name;
    std::string_view file_name;
    std::string text;
    std::vector<std::string> remarks;
  } rows[] = {
      {"all that there is",
       kNetflowPolicyFile,
       "<?xml version='1.0'?><Policy/><!-- <x/> --><OmbrelPluginConfiguration><Policy><MeterHosts>"
       "False</MeterHosts><HomeASNumbers>1</HomeASNumbers><HomeASNumbersFile>1 &lt; "
       "2</HomeASNumbersFile><AddEdges></AddEdges>"
       "<AddL2AccountingBytes>-4</AddL2AccountingBytes></Policy><SamplingRates><Rate/><Rate/></"
       "SamplingRates><StaticTemplates>"
       "<Template><Fields/></Template><Template/></StaticTemplates></OmbrelPluginConfiguration>",
       {}},
      {"in other case",
       kNetflowPolicyFile,
       "<ombrelpluginconfiguration><policy><meterhosts/></policy></ombrelpluginconfiguration>",
       {}},
      {"values of no use",
       kNetflowPolicyFile,
       "<OmbrelPluginConfiguration><Policy><MeterHosts>yes</MeterHosts>\n<MeterASN>1</MeterASN>"
       "<AddL2AccountingBytes>18 bytes</AddL2AccountingBytes></Policy></OmbrelPluginConfiguration>",
       {"1 MeterHosts is off: its value is neither true nor false, but yes",
        "2 MeterASN is off: its value is neither true nor false, but 1",
        "2 AddL2AccountingBytes is no number, but 18 bytes"}},
      {"of the other file",
       kSFlowPolicyFile,
       "<OmbrelPluginConfiguration><Policy><MeterVLAN/>\n<MeterNBAR/></Policy>\n\n"
       "<SamplingRates><Rate/></SamplingRates></OmbrelPluginConfiguration>",
       {"2" + no_setting + "MeterNBAR" + no_effect,
        "4" + no_setting + "SamplingRates" + no_effect}},
      {"misspelt, misplaced, twice",
       kNetflowPolicyFile,
       "\n<OmbrelPluginConfiguration><MeterHosts/>\n<Policy><!--\n--><Unknwon\n a='b'><x/>"
       "</Unknwon><MergeDNS><MergeHTTP/></MergeDNS>\n<Mergedns/><Rate/></Policy>\n<Policy>"
       "<Unknown/></Policy></OmbrelPluginConfiguration>",
       {"2 MeterHosts has no effect here; it belongs into Policy",
        "4" + no_setting + "Unknwon" + no_effect,
        "5 MergeHTTP has no effect here; it belongs into Policy",
        "6 Mergedns is there already; the first one counts",
        "6 Rate has no effect here; it belongs into SamplingRates",
        "7 Policy is there already; the first one counts"}},
      {"beside and above the root",
       kNetflowPolicyFile,
       "<Unknown/><x><OmbrelPluginConfiguration>\n<Other/></OmbrelPluginConfiguration></x>",
       {"2" + no_setting + "Other" + no_effect}},
      {"an end tag that the plug-in takes alone",
       kNetflowPolicyFile,
       "<OmbrelPluginConfiguration><Policy>\n<Unknwon/><MeterHosts>false</METERHOSTS>\n<Other/>"
       "</Policy></OmbrelPluginConfiguration>",
       {"2" + no_setting + "Unknwon" + no_effect,
        "2 not well-formed (Start-end tags mismatch); the names behind it are not checked"}},
      {"behind a NUL",
       kNetflowPolicyFile,
       std::string("<OmbrelPluginConfiguration/>\0<OmbrelPluginConfiguration><x/>", 60),
       {}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_THAT(Remarks(row.file_name, row.text), ElementsAreArray(row.remarks));
  }
}

std::string PolicyOf(const std::string& settings) {
  return "<OmbrelPluginConfiguration><Policy>" + settings + "</Policy></OmbrelPluginConfiguration>";
}

TEST(PolicyNames, OfSettingsWithoutEffectAreRemarkedOn) {
  const std::string none_of = "1 no item of ";
  const struct {
    std::string_view file_name;
    std::string settings;
    std::vector<std::string> remarks;
  } rows[] = {
      {kNetflowPolicyFile, "<MeterLinkAS>true</MeterLinkAS>", {}},
      {kNetflowPolicyFile,
       "<MeterLinkAS>true</MeterLinkAS>\n<MeterNetflowInterfaces>false</MeterNetflowInterfaces>",
       {"1 MeterLinkAS counts nothing while MeterNetflowInterfaces is off"}},
      {kNetflowPolicyFile,
       "<MeterBothPorts>false</MeterBothPorts><MeterApplications>false</MeterApplications>",
       {"1 MeterNBAR counts nothing while MeterApplications is off"}},
      {kNetflowPolicyFile,
       "<TagFlowsWithUserID> TRUE </TagFlowsWithUserID>",
       {"1 TagFlowsWithUserID has no effect while MeterZeroFlows is off"}},
      {kNetflowPolicyFile, "<IgnoreAllEgress>true</IgnoreAllEgress>", {}},
      {kNetflowPolicyFile,
       "<IgnoreAllEgress>true</IgnoreAllEgress>\n<KeepEgressRecords>true</KeepEgressRecords>",
       {"1 KeepEgressRecords keeps nothing while IgnoreAllEgress is on"}},
      {kNetflowPolicyFile,
       "<MeterZeroFlows>true</MeterZeroFlows><CheckPacketsForCorruption>true"
       "</CheckPacketsForCorruption><AddL2AccountingBytes>6</AddL2AccountingBytes>",
       {"1 records without bytes, which MeterZeroFlows wants, are dropped while "
        "CheckPacketsForCorruption is on"}},
      {kNetflowPolicyFile,
       "<HomeASNumbers></HomeASNumbers>\n<HomeASNumbersFile>homeas</HomeASNumbersFile>",
       {"2 HomeASNumbersFile has no effect while HomeASNumbers lists no number"}},
      {kNetflowPolicyFile,
       "</Policy><SamplingRates><Rate router='10.0.0.1' rate='16384'/>\n<Rate router='10.0.0.2' "
       "rate='20000'/><Rate router='10.0.0.3' rate='16383'/></SamplingRates><Policy>",
       {"1 the rate 16384 counts as 1 while Count64Bit is off",
        "2 Policy is there already; the first one counts",
        "2 the rate 20000 counts as 3616 while Count64Bit is off"}},
      {kNetflowPolicyFile,
       "<HomeASNumbers>home</HomeASNumbers><IgnoreV9EgressFromDevices>10.0.0.256"
       "</IgnoreV9EgressFromDevices><FilterHostsInclude>10.0.0.1,router</FilterHostsInclude>",
       {none_of + "IgnoreV9EgressFromDevices is an IPv4 address; no counts are ignored",
        none_of + "HomeASNumbers is a number; each counts as 0"}},
      {kNetflowPolicyFile,
       "<FilterInterfacesInclude>eth0,192.168.100.100_1234</FilterInterfacesInclude>",
       {"1 FilterInterfacesInclude: no interface has the key 192.168.100.100_1234 (20 characters "
        "are one)",
        none_of + "FilterInterfacesInclude is an interface; no flow is metered"}},
      {kSFlowPolicyFile,
       "<FilterHostsExclude>,</FilterHostsExclude>",
       {none_of + "FilterHostsExclude is an IPv4 address; nothing is filtered"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.settings);
    EXPECT_THAT(Remarks(row.file_name, PolicyOf(row.settings)), ElementsAreArray(row.remarks));
  }
}

// What is said of interface filters, beside what the library makes of them.
TEST(PolicyNames, OfInterfaceFiltersAreRemarkedOnWhereTheyMatchNothing) {
  constexpr std::uint32_t kRouter = 0xC0A86464;  // 192.168.100.100
  const struct {
    std::string items;
    bool is_readable_form;  // which NetFlow takes alone
    bool is_used;
  } rows[] = {
      {"C0.A8.64.64_000004D2", false, true},
      {"192.168.100.100_01234", true, true},
      {"nonsense,192.168.100.100_01234", true, true},
      {"192.168.100.100_1234", true, false},
      {"192.168.100.256_1234x", true, false},
      {"c0.a8.64.64_000004d2", false, false},
      {"eth0", false, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.items);
    const std::string text =
        PolicyOf("<FilterInterfacesExclude>" + row.items + "</FilterInterfacesExclude>");
    const auto root = XMLNode::parseString(text.c_str(), "OmbrelPluginConfiguration", nullptr);
    const auto says = [&](std::string_view file_name) {
      return testing::PrintToString(Remarks(file_name, text)).find("no item of") !=
             std::string::npos;
    };
    InterfaceFilter netflow;
    InterfaceFilter sflow;
    ASSERT_TRUE(netflow.Load(root.getChildNode("Policy"), nullptr));
    ASSERT_TRUE(sflow.LoadUnchecked(root.getChildNode("Policy"), nullptr));
    EXPECT_EQ(netflow.Passes(kRouter, 1234, 1234), !row.is_used);
    EXPECT_EQ(says(kNetflowPolicyFile), !row.is_used);
    EXPECT_EQ(says(kSFlowPolicyFile), sflow.Passes(kRouter, 1234, 1234));
    EXPECT_EQ(sflow.Passes(kRouter, 1234, 1234), row.is_readable_form || !row.is_used);
  }
}

// The written policies hold every setting. They turn on some that are off when absent, and nothing
// off but what would keep flows from being whole: on the first start a collector counts all that it
// would count without them.
class WrittenPolicy : public testing::Test {
 protected:
  static XMLNode Read(std::string_view file_name) {
    const std::string text = DefaultPolicy(file_name);
    EXPECT_THAT(Remarks(file_name, text), IsEmpty());
    XMLResults results{};
    const XMLNode root = XMLNode::parseString(text.c_str(), "OmbrelPluginConfiguration", &results);
    EXPECT_STREQ(XMLNode::getError(results.error), "No error");
    return root.getChildNode("Policy");
  }
  static void ExpectSwitch(const char* key, bool is, bool absent, bool written) {
    EXPECT_EQ(is, written) << key;
    const bool merges = std::string_view(key).starts_with("Merge");
    EXPECT_TRUE(merges ? !written : written || !absent) << key << " is on when it is absent";
  }
};

TEST_F(WrittenPolicy, OfNetflowIsWhatTheLibraryReads) {
  const XMLNode settings = Read(kNetflowPolicyFile);
  NetflowPolicy policy;
  policy.LoadCounterSwitches(settings);
  EXPECT_TRUE(policy.LoadFilters(settings, nullptr));
  policy.LoadFlowSettings(settings, nullptr);
  EXPECT_EQ(settings.nChildNode(), static_cast<int>(std::size(kNetflowSettings)));
#define FLOW_SWITCH_AS(member, key, absent, written, ...) \
  ExpectSwitch(#key, policy.member, absent, written);
#define FLOW_NUMBER(key, absent, written, ...) EXPECT_EQ(policy.key, written) << #key;
#define FLOW_TEXT(key, ...) EXPECT_EQ(policy.key, "") << #key;
#define FLOW_LIST(key, ...) EXPECT_EQ(settings.getChildNode(#key).nText(), 0) << #key;
#include "plugin/netflow_settings.def"
}

TEST_F(WrittenPolicy, OfSFlowIsWhatTheLibraryReads) {
  const XMLNode settings = Read(kSFlowPolicyFile);
  SFlowPolicy policy;
  EXPECT_TRUE(policy.Load(settings, nullptr));
  EXPECT_EQ(settings.nChildNode(), static_cast<int>(std::size(kSFlowSettings)));
#define FLOW_SWITCH_AS(member, key, absent, written, ...) \
  ExpectSwitch(#key, policy.member, absent, written);
#define FLOW_LIST(key, ...) EXPECT_EQ(settings.getChildNode(#key).nText(), 0) << #key;
#include "plugin/sflow_settings.def"
}

}  // namespace
}  // namespace flow::host
