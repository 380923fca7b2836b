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
       "False</MeterHosts><HomeASNumbersFile>1 &lt; 2</HomeASNumbersFile><AddEdges></AddEdges>"
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

// The written policies hold every setting. They turn on some that are off when absent, and nothing
// off: on the first start a collector counts all that it would count without them.
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
    EXPECT_TRUE(written || !absent) << key << " is on when it is absent";
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
