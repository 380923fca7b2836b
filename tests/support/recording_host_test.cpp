// SPDX-License-Identifier: Apache-2.0
// The recording host must see what it promises to see, or the tests that rely on it see nothing.

#include "tests/support/recording_host.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "tests/support/datagram_builders.h"
#include "tests/support/host_trace.h"

namespace flow::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr GUID kHosts = MakeGuid("4CD742B1-C1CA-4708-BE78-0FCA2EB01A86");
constexpr GUID kFlows = MakeGuid("99A78737-4B41-4387-8F31-8077DB917336");
constexpr GUID kAggregates = MakeGuid("393B5EBC-AB41-4387-8F31-8077DB917336");
constexpr GUID kVrf = MakeGuid("7FAB8F84-C580-424B-2BA4-B2546D2DB15A");
constexpr GUID kUsers = MakeGuid("9021F5D3-FEFB-401B-99EC-EF2ACD088578");

TEST(RecordingHost, WritesCallsInOrderAndTakesThemOnce) {
  RecordingHost host;
  IOmbrelStatsEngine& engine = *host.Engine();
  engine.MarkRecord();
  const int meters[] = {0, 2};
  const std::uint64_t values[] = {1000, 5};
  engine.UpdateCounterMulti(kHosts, 11, "C0.A8.01.0A", 2, meters, values);
  engine.UpdateCounterHashed2(kAggregates, 0xCE94BC07, "TOTALBW", 0, 1, 1, 2);
  engine.UpdateFlowCounterWithText(kFlows, "", 0, 1, "a\tb\xff");
  host.Site()->Log(7, "a text ");
  bool home = false;
  host.Site()->IsHomeAddress(0x0A000001, &home);
  EXPECT_THAT(
      host.Take(),
      ElementsAre("MarkRecord", "UpdateCounterMulti COUNTERID_HOSTS 11 C0.A8.01.0A 2 0 1000 2 5",
                  "UpdateCounterHashed2 COUNTERID_AGGREGATES 0xce94bc07 TOTALBW 0 1 1 2",
                  R"(UpdateFlowCounterWithText COUNTERID_FLOWS "" 0 1 a\tb\xff)", "Log 7 a text "));
  EXPECT_THAT(host.Take(), IsEmpty());
}

TEST(RecordingHost, FindsBrokenPromises) {
  const struct {
    const char* fault;
    std::function<void(RecordingHost&)> act;
  } cases[] = {
      {"key length 10 for C0.A8.01.0A",
       [](RecordingHost& h) { h.Engine()->UpdateCounterKeyLen(kHosts, 10, "C0.A8.01.0A", 0, 1); }},
      {"no key of this group: c0.a8.01.0a",
       [](RecordingHost& h) { h.Engine()->UpdateCounter(kHosts, "c0.a8.01.0a", 0, 1); }},
      {"no key of this group: C0.A8.01.0A.",
       [](RecordingHost& h) { h.Engine()->UpdateCounter(kHosts, "C0.A8.01.0A.", 0, 1); }},
      {"a key without its NUL",
       [](RecordingHost& h) {
         h.Engine()->UpdateCounter(kVrf, std::string(256, 'x').c_str(), 0, 1);
       }},
      {"no key of this group: VRF:-",
       [](RecordingHost& h) { h.Engine()->UpdateCounter(kVrf, "VRF:-", 0, 1); }},
      {"no key of this group: VRF:12 ",
       [](RecordingHost& h) { h.Engine()->UpdateCounter(kVrf, "VRF:12 ", 0, 1); }},
      {"no key of this group: xxx",
       [](RecordingHost& h) {
         h.Engine()->UpdateCounter(kUsers, std::string(32, 'x').c_str(), 0, 1);
       }},
      {"the value 4294967296",
       [](RecordingHost& h) {
         h.Engine()->UpdateCounter3(kHosts, 11, "C0.A8.01.0A", 0, 1, 1, 2, 2, 1ULL << 32);
       }},
      {"null key", [](RecordingHost& h) { h.Engine()->CloseFlow(kFlows, nullptr); }},
      {"no meter 4",
       [](RecordingHost& h) { h.Engine()->UpdateCounter(kHosts, "C0.A8.01.0A", 4, 1); }},
      {"unknown group", [](RecordingHost& h) { h.Engine()->UpdateCounter(GUID{}, "x", 0, 1); }},
      {"wrong hash",
       [](RecordingHost& h) {
         h.Engine()->UpdateCounterHashed2(kAggregates, 1, "TOTALBW", 0, 1, 1, 1);
       }},
      {"AddRef on the statistics engine", [](RecordingHost& h) { h.Engine()->AddRef(); }},
      {"byte 30 of the packet",
       [](RecordingHost& h) {
         const Packet packet(h.Trace(), UdpHeaders({}, 4), Bytes(4));
         packet.Headers()[12] ^= 1;  // the source address may change
         packet.Headers()[30] ^= 1;
         packet.CheckUntouched();
       }},
  };
  for (const auto& broken : cases) {
    SCOPED_TRACE(broken.fault);
    RecordingHost host;
    host.KeepFaults();
    broken.act(host);
    EXPECT_THAT(host.Faults(), ElementsAre(HasSubstr(broken.fault)));
  }
}

TEST(Builders, AreRightByDefaultAndLieOnRequest) {
  EXPECT_EQ(V5Packet().Record().Record({.src = "1.2.3.4"}).Build().size(), 24u + 2 * 48u);
  EXPECT_EQ(V1Packet().Record().Build().size(), 16u + 48u);
  const Set lying = DataSet(256).Record(Wire().U32(1)).Pad(1).WithLength(3);
  EXPECT_EQ(V9Packet().Add(lying).Build(), Wire()
                                               .HexText("0009000100002710"
                                                        "6553f100"
                                                        "0000000100000000")
                                               .HexText("0100000300000001"
                                                        "00")
                                               .Get());
  const Set templates = IpfixTemplates().Template(256, {{8, 4}, {1, 65535, 29305}});
  EXPECT_EQ(IpfixMessage().Add(templates).WithLength(99).ExportTime(1).Build(),
            Wire()
                .HexText("000a0063000000010000000100000000")
                .HexText("00020014010000020008000480"
                         "01ffff00007279")
                .Get());
}

}  // namespace
}  // namespace flow::test
