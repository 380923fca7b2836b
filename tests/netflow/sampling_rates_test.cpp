// SPDX-License-Identifier: Apache-2.0
// Sampling rates: configured, learnt from options data, applied and published.

#include "tests/netflow/meter_test.h"
#include "tests/support/policy_file.h"

namespace flow::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Sampling : public MeterTest {
 protected:
  // Bytes and packets of a flow of 1000 bytes and 10 packets from an exporter.
  std::string Metered(const Exporter& from) {
    host_.Forget();
    Send(V9(Learn(kFlowFields), Data(FlowRecord())), from);
    const Texts said = Said();
    return said.empty() ? "none" : said.back().substr(said.back().find(", ") + 2);
  }
  void LearnRate(std::uint32_t rate, const Exporter& from, std::uint16_t element = 34) {
    Send(V9(V9Options(400, {{1, 4}}, {{element, 4}}), Data(Numbers({0, rate}), 400)), from);
  }
  const Exporter a_ = {.address = "10.0.0.1", .port = 1};
  const Exporter b_ = {.address = "10.0.0.2", .port = 1};
};

TEST_F(Sampling, ConfiguredRates) {
  Start("",
        "<SamplingRates><Rate router='0.0.0.0' rate='10'/><Rate router='10.0.0.1' rate='100'/>"
        "<Rate router='10.0.0.1' rate='7'/></SamplingRates>");
  EXPECT_EQ(Metered(a_), "100000 bytes 1000 packets") << "the first of an address";
  EXPECT_EQ(Metered(b_), "10000 bytes 100 packets") << "the default";
}

TEST_F(Sampling, NoDefaultRate) {
  Start("", "<SamplingRates><Rate router='10.0.0.1' rate='100'/></SamplingRates>");
  EXPECT_EQ(Metered(b_), "1000 bytes 10 packets");
  EXPECT_EQ(Metered(a_), "100000 bytes 1000 packets");
}

TEST_F(Sampling, ConfigurationMessages) {
  host_.Policy("",
               "<SamplingRates><Rate router='10.0.0' rate='5'/><Rate rate='x'/>"
               "<Rate router='10.0.0.1'/><Rate router='10.0.0.1' rate='x'/>"
               "<Rate router='10.0.0.1' rate='-3'/><Rate router='10.0.0.2' rate='12 x'/>"
               "</SamplingRates>");
  host_.Attach(meter_);
  constexpr char kAddress[] = "Log 4 Invalid IP Address in SamplingRates>Rate";
  constexpr char kRate[] = "Log 4 Invalid Sampling Rate (not an integer) in SamplingRates>Rate";
  EXPECT_THAT(host_.Take("Rate"), ElementsAre(kAddress, kAddress, kRate, kRate,
                                              "Log 7 Loaded Custom Sample Rate for 10.0.0.1 = -3",
                                              "Log 7 Loaded Custom Sample Rate for 10.0.0.2 = 12"));
}

// The low 14 bits count, and 0 as 1.
TEST_F(Sampling, LearntRates) {
  Start();
  const std::pair<std::uint32_t, const char*> cases[] = {
      {1000, "1000000 bytes 10000 packets"},    {0, "1000 bytes 10 packets"},
      {16383, "16383000 bytes 163830 packets"}, {16384, "1000 bytes 10 packets"},
      {20000, "3616000 bytes 36160 packets"},   {65538, "2000 bytes 20 packets"}};
  for (const std::uint16_t element : std::initializer_list<std::uint16_t>{34, 305}) {
    for (const auto& [rate, metered] : cases) {
      LearnRate(rate, a_, element);
      EXPECT_EQ(Metered(a_), metered) << element << " " << rate;
    }
  }
  EXPECT_EQ(Metered({.address = "10.0.0.1", .port = 2}), cases[5].second) << "whatever the port";
  EXPECT_EQ(Metered(b_), "1000 bytes 10 packets");
  Fields own = kFlowFields;
  own.push_back({34, 4});
  Send(V9(Learn(own, 301), Data(FlowRecord().U32(50), 301)), b_);
  EXPECT_THAT(Said(), testing::Contains(testing::HasSubstr(" 50000 bytes 500 packets")))
      << "what the record itself tells";
}

// All rates are published, in the order of the addresses as stored, whenever one is learnt.
TEST_F(Sampling, Published) {
  Start("",
        "<SamplingRates><Rate router='0.0.0.0' rate='10'/><Rate router='1.0.0.2' rate='-1'/>"
        "</SamplingRates>");
  const auto property = [](const std::string& key, const char* rate) {
    return "SetKeyProperty COUNTERID_FLOWGEN " + key + " netflow.sampling_rate " + rate;
  };
  LearnRate(1000, b_);
  EXPECT_THAT(Said(), ElementsAre(property("00.00.00.00", "10"), property("01.00.00.02", "-1"),
                                  property("0A.00.00.02", "1000")));
  LearnRate(0xFFFFFFFE, {.address = "1.0.0.2", .port = 1});
  EXPECT_THAT(Said(), ElementsAre(property("00.00.00.00", "10"), property("01.00.00.02", "-2"),
                                  property("0A.00.00.02", "1000")));
  testing::internal::CaptureStdout();
  meter_->DebugDumpSamplingRates();
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "---- Sampling Rates -----\n Router  0   SamplingRate   10\n"
            "---- Sampling Rates -----\n Router  33554433   SamplingRate   -2\n"
            "---- Sampling Rates -----\n Router  33554442   SamplingRate   1000\n");
}

// A rate stays that was learnt of a record which then broke off, until the policy is loaded again.
TEST_F(Sampling, LearntOfABrokenRecordUntilReload) {
  Start("<ReloadConfigCheckSeconds>60</ReloadConfigCheckSeconds>");
  SetModificationTime(host_.PolicyPath(), 1000000);
  Send(V9(Learn({{34, 4}, {210, 4}}), Data(Numbers({5}))), a_);
  EXPECT_EQ(meter_->LastSetError(), SetError::kFieldOverflow);
  EXPECT_EQ(Metered(a_), "5000 bytes 50 packets");
  SetModificationTime(host_.PolicyPath(), 2000000);
  host_.Now(1060);
  EXPECT_EQ(Metered(a_), "1000 bytes 10 packets");
}

}  // namespace
}  // namespace flow::test
