// SPDX-License-Identifier: Apache-2.0
// Elements of flow samples, extended data of versions 2 and 4, and counter blocks: what each gives,
// and that each takes just its own length.

#include <gtest/gtest.h>

#include <ostream>

#include "tests/sflow/decoded.h"
#include "tests/support/sflow_builder.h"

namespace flow::test {
namespace {

const Wire kMac = Wire().Mac("02:00:00:00:00:09").HexText("ffff");  // its padding is not looked at

struct Case {
  const char* name;
  SFlowElement element;
  std::string fields;

  friend void PrintTo(const Case& row, std::ostream* out) { *out << row.name; }
};

std::string NameOf(const testing::TestParamInfo<Case>& info) { return info.param.name; }

class FlowElementTest : public testing::TestWithParam<Case> {};

TEST_P(FlowElementTest, GivesFields) {
  const Case& row = GetParam();
  const Decoded decoded = Decode(SFlowPacket().Flow({.elements = {row.element}}).Build());
  EXPECT_EQ(decoded.LastFields(), row.fields);
  EXPECT_EQ(decoded.diagnostics, "");
}

// A word more and a word less than the element takes are both reported.
TEST_P(FlowElementTest, KnowsItsLength) {
  SFlowElement element = GetParam().element;
  const auto size = static_cast<std::uint32_t>(element.body.size());
  for (const std::uint32_t claimed : {size - 4, size + 4}) {
    element.length = claimed;
    const Decoded decoded =
        Decode(SFlowPacket().Flow({.elements = {element, {4097, Words({1})}}}).Build());
    EXPECT_EQ(decoded.diagnostics, "flow_sample_element length error (expected " +
                                       std::to_string(claimed) + ", found " + std::to_string(size) +
                                       ")\n");
    EXPECT_EQ(decoded.samples.size(), 0U);
    EXPECT_EQ(decoded.exit, SFExit::kLengthError);
  }
}

const std::string kPorts = " srcPort=51000 dstPort=80";

INSTANTIATE_TEST_SUITE_P(
    Packet, FlowElementTest,
    testing::ValuesIn<Case>({
        {"Ethernet",
         {2, Join({Words({600}), kMac, Wire().Mac("02:00:00:00:00:08").Zeros(2), Words({0x0800})})},
         "src=0200000000090000 dst=0200000000080000 ethernet_type=2048 ethernet_len=600"},
        {"Ipv4Tcp", PacketData4(3),
         "srcIP=10.0.0.1 dstIP=10.0.0.2 IPProtocol=6 IPTOS=32" + kPorts + " TCPFlags=18"},
        {"Ipv4FlagsOfUdp", PacketData4(3, 17),
         "srcIP=10.0.0.1 dstIP=10.0.0.2 IPProtocol=17 IPTOS=32" + kPorts},
        {"Ipv4ProtocolOfAWord", PacketData4(3, 0x106),
         "srcIP=10.0.0.1 dstIP=10.0.0.2 IPProtocol=262 IPTOS=32" + kPorts},
        {"Ipv6Tcp", PacketData6(4),
         "srcIP=2001:db8::1 dstIP=2001:db8::2 IPProtocol=6" + kPorts + " TCPFlags=18"},
        {"Ipv6Udp", PacketData6(4, 17),
         "srcIP=2001:db8::1 dstIP=2001:db8::2 IPProtocol=17" + kPorts},
        {"Socket4",
         {2100, Join({Words({6}), Wire().Ip("10.2.0.1").Ip("10.2.0.2"), Words({1, 2})})},
         "srcIP=10.2.0.1 dstIP=10.2.0.2"},
        {"Socket6",
         {2101, Join({Words({6}), Wire().Ip6("2001:db8::5").Ip6("2001:db8::6"), Words({1, 2})})},
         "srcIP=2001:db8::5 dstIP=2001:db8::6"},
    }),
    NameOf);

INSTANTIATE_TEST_SUITE_P(
    Extended, FlowElementTest,
    testing::ValuesIn<Case>({
        {"Switch",
         {1001, Words({100, 1, 200, 2})},
         "in_vlan=100 in_priority=1 out_vlan=200 out_priority=2 extendedTypes=1"},
        {"Router",
         {1002, Join({SFlowAddress("10.1.1.1"), Words({24, 16})})},
         "extendedTypes=4 nextHop=10.1.1.1 srcSubnetMask=24 dstSubnetMask=16"},
        {"RouterWithAnAddressOfAnotherType",
         {1002, Join({Words({7}), Wire().Ip6("2001:db8::3"), Words({24, 16})})},
         "extendedTypes=4 nextHop=2001:db8::3 srcSubnetMask=24 dstSubnetMask=16"},
        {"Gateway",
         {1003,
          Join({SFlowAddress6("2001:db8::9"), Words({1, 2, 3}),
                Words({2, 2, 2, 65001, 65002, 1, 2, 65003, 65004}), Words({2, 100, 200, 50})})},
         "extendedTypes=8 bgp_nexthop=2001:db8::9 my_as=1 src_as=2 src_peer_as=3 dst_peer_as=65001"
         " dst_as=65004 localpref=50 communities=100,200"},
        {"GatewayWithoutPathAndCommunities",
         {1003, Join({SFlowAddress("10.1.1.1"), Words({1, 2, 3, 0, 0, 50})})},
         "extendedTypes=8 bgp_nexthop=10.1.1.1 my_as=1 src_as=2 src_peer_as=3 localpref=50"},
        {"GatewayWithAnEmptyFirstSegment",
         {1003, Join({SFlowAddress("10.1.1.1"), Words({1, 2, 3, 2, 2, 0, 2, 1, 65001, 0, 50})})},
         "extendedTypes=8 bgp_nexthop=10.1.1.1 my_as=1 src_as=2 src_peer_as=3 dst_as=65001"
         " localpref=50"},
        {"GatewayWithAnEmptyLastSegment",
         {1003, Join({SFlowAddress("10.1.1.1"), Words({1, 2, 3, 2, 2, 1, 65001, 2, 0, 0, 50})})},
         "extendedTypes=8 bgp_nexthop=10.1.1.1 my_as=1 src_as=2 src_peer_as=3 dst_peer_as=65001"
         " localpref=50"},
        {"User",
         {1004, Join({Words({106}), SFlowText("alice"), Words({3}), SFlowText("bob!")})},
         "extendedTypes=16 src_user_charset=106 src_user_len=5 src_user=alice dst_user_charset=3"
         " dst_user_len=4 dst_user=bob!"},
        {"LongUser",
         {1004, Join({Words({0}), SFlowText(std::string(300, 'u')), Words({0}), SFlowText("b")})},
         "extendedTypes=16 src_user_len=300 src_user=" + std::string(199, 'u') +
             " dst_user_len=1 dst_user=b"},
        {"UserOf199And200Characters",
         {1004, Join({Words({0}), SFlowText(std::string(199, 'u')), Words({0}),
                      SFlowText(std::string(200, 'v'))})},
         "extendedTypes=16 src_user_len=199 src_user=" + std::string(199, 'u') +
             " dst_user_len=200 dst_user=" + std::string(199, 'v')},
        {"Url",
         {1005, Join({Words({2}), SFlowText("/index"), SFlowText("www.example.net")})},
         "extendedTypes=32 url_direction=2 url_len=6 url=/index host_len=15 host=www.example.net"},
        {"Mpls",
         {1006, Join({SFlowAddress("10.1.1.2"), Words({1, 16, 2, 17, 18})})},
         "extendedTypes=64 mpls_nexthop=10.1.1.2"},
        {"Nat",
         {1007, Join({SFlowAddress("10.1.1.3"), SFlowAddress6("2001:db8::4")})},
         "extendedTypes=128 nat_src=10.1.1.3 nat_dst=2001:db8::4"},
        {"MplsTunnel", {1008, Join({SFlowText("t"), Words({1, 2})})}, "extendedTypes=256"},
        {"MplsVc", {1009, Join({SFlowText("vc"), Words({1, 2})})}, "extendedTypes=512"},
        {"MplsFtn", {1010, Join({SFlowText("ftn"), Words({1})})}, "extendedTypes=1024"},
        {"MplsLdpFec", {1011, Words({1})}, "extendedTypes=2048"},
        {"VlanTunnel", {1012, Words({2, 10, 20})}, "extendedTypes=4096"},
        {"WifiPayload",
         {1013, Join({Words({4}), SampledHeader(Frame().Ethernet(0x0806).Zeros(28)).body})},
         "src=0200000000010000 dst=0200000000020000 ethernet_type=2054"},
        {"WifiReceive", {1014, Join({SFlowText("ssid"), kMac, CountedWords(7)})}, ""},
        {"WifiTransmit", {1015, Join({SFlowText("ssid"), kMac, CountedWords(8)})}, ""},
        {"Memcache", {2200, Join({Words({1, 2}), SFlowText("key"), CountedWords(4)})}, ""},
        {"Http",
         {2201,
          Join({Words({1, 2}), SFlowText(std::string(300, 'h')), SFlowText(""), SFlowText("a"),
                SFlowText("b"), SFlowText("c"), SFlowText("d"), CountedWords(4)})},
         ""},
    }),
    NameOf);

TEST(FlowElements, UnknownOnesArePassedOverWithTheirPadding) {
  for (const std::uint32_t type : {0U, 5U, 1000U, 1016U, 2099U, 4097U, 0xFFFFFFFFU}) {
    for (const std::uint32_t size : {0U, 1U, 5U, 8U}) {
      SFlowElement unknown = {type, Wire().Zeros(std::size_t{4} * ((size + 3) / 4))};
      unknown.length = size;
      const Decoded decoded =
          Decode(SFlowPacket().Flow({.elements = {unknown, {1001, Words({1, 2, 3, 4})}}}).Build());
      EXPECT_EQ(decoded.LastFields(),
                "in_vlan=1 in_priority=2 out_vlan=3 out_priority=4 extendedTypes=1")
          << type << " of " << size;
    }
  }
}

// Bits gather in version 5, where nothing clears them; versions 2 and 4 clear them for each sample.
TEST(FlowElements, ExtendedTypesOfASample) {
  const SFlowElement switch5 = {1001, Words({1, 2, 3, 4})};
  const SFlowElement fec5 = {1011, Words({1})};
  EXPECT_TRUE(Decode(SFlowPacket().Flow({.elements = {switch5}}).Flow({.elements = {fec5}}).Build())
                  .LastFields()
                  .ends_with("extendedTypes=2049"));
  const SFlowElement switch4 = {1, Words({1, 2, 3, 4})};
  EXPECT_TRUE(
      Decode(SFlowPacket(4)
                 .Flow({.elements = {PacketData4(2), switch4}})
                 .Flow({.elements = {PacketData4(2),
                                     {2, Join({SFlowAddress("10.1.1.1"), Words({24, 16})})}}})
                 .Build())
          .LastFields()
          .ends_with(" extendedTypes=4 nextHop=10.1.1.1 srcSubnetMask=24"
                     " dstSubnetMask=16"));
}

// A count that does not fit must neither be believed nor wrap round when it is multiplied.
TEST(FlowElements, CountsThatDoNotFitEndTheDatagram) {
  const std::pair<const char*, SFlowElement> rows[] = {
      {"labels", {1006, Join({SFlowAddress("10.1.1.2"), Words({0x40000001, 1, 0})})}},
      {"output labels", {1006, Join({SFlowAddress("10.1.1.2"), Words({0, 0x80000000})})}},
      {"segments", {1003, Join({SFlowAddress("10.1.1.1"), Words({1, 2, 3, 0xFFFFFFFF, 2, 0})})}},
      {"path", {1003, Join({SFlowAddress("10.1.1.1"), Words({1, 2, 3, 1, 2, 0x40000000, 0})})}},
      {"communities", {1003, Join({SFlowAddress("10.1.1.1"), Words({1, 2, 3, 0, 0x40000001, 1})})}},
      {"tunnels", {1012, Words({0x40000002, 1, 2})}},
      {"user", {1004, Words({0, 0xFFFFFFFD, 0})}},
      {"unknown", {4097, Wire(), 0xFFFFFFFE}},
      {"header", {1, Words({1, 100, 4, 0xFFFFFFFF})}},
  };
  for (const auto& [what, element] : rows) {
    const Decoded decoded = Decode(
        SFlowPacket().Flow({.elements = {PacketData4(3)}}).Flow({.elements = {element}}).Build());
    EXPECT_EQ(decoded.samples.size(), 1U) << what;
    EXPECT_EQ(decoded.exit, SFExit::kEndOfDatagram) << what;
    EXPECT_EQ(decoded.diagnostics, "") << what;
  }
}

class Version4Test : public testing::TestWithParam<Case> {};

TEST_P(Version4Test, GivesFields) {
  const Case& row = GetParam();
  const Decoded decoded = Decode(
      SFlowPacket(4)
          .Flow({.elements = {SampledHeader(Frame(), {.stripped = std::nullopt}), row.element}})
          .Flow({.elements = {SampledHeader(Frame(), {.stripped = std::nullopt})}})
          .Build());
  ASSERT_EQ(decoded.samples.size(), 2U) << "what follows the element is misread";
  EXPECT_EQ(decoded.samples[0].fields, row.fields);
}

INSTANTIATE_TEST_SUITE_P(
    Extended, Version4Test,
    testing::ValuesIn<Case>({
        {"Switch",
         {1, Words({100, 1, 200, 2})},
         "in_vlan=100 in_priority=1 out_vlan=200 out_priority=2 extendedTypes=1"},
        {"Router",
         {2, Join({SFlowAddress("10.1.1.1"), Words({24, 16})})},
         "extendedTypes=4 nextHop=10.1.1.1 srcSubnetMask=24 dstSubnetMask=16"},
        {"Gateway",
         {3, Words({1, 2, 3, 2, 1, 1, 65001, 2, 1, 65002, 1, 100, 50})},
         "extendedTypes=8 my_as=1 src_as=2 src_peer_as=3 dst_peer_as=65001 dst_as=65002"
         " localpref=50 communities=100"},
        {"User",
         {4, Join({SFlowText("alice"), SFlowText("bob")})},
         "extendedTypes=16 src_user_len=5 src_user=alice dst_user_len=3 dst_user=bob"},
        {"Url",
         {5, Join({Words({1}), SFlowText("/index")})},
         "extendedTypes=32 url_direction=1 url_len=6 url=/index"},
    }),
    NameOf);

TEST(Version2, GatewayKeepsItsPath) {
  const auto decode = [](const Wire& body) {
    return Decode(SFlowPacket(2)
                      .Flow({.elements = {SampledHeader(Frame(), {.stripped = std::nullopt}),
                                          {3, body}}})
                      .Build())
        .LastFields();
  };
  EXPECT_EQ(decode(Words({1, 2, 3, 3, 65001, 65002, 65003})),
            "extendedTypes=8 my_as=1 src_as=2 src_peer_as=3 dst_peer_as=65001"
            " dst_as=65003 dst_as_path=65001,65002,65003");
  EXPECT_EQ(decode(Words({1, 2, 3, 1, 65001})),
            "extendedTypes=8 my_as=1 src_as=2 src_peer_as=3 dst_peer_as=65001"
            " dst_as=65001 dst_as_path=65001");
  EXPECT_EQ(decode(Words({1, 2, 3, 0x40000000})), "no sample");
}

TEST(PacketData, OfVersions2And4) {
  EXPECT_EQ(Decode(SFlowPacket(4).Flow({.elements = {PacketData4(2)}}).Build()).LastFields(),
            "hasIPv4Struct=1 srcIP=10.0.0.1 dstIP=10.0.0.2 IPProtocol=6 IPTOS=32" + kPorts +
                " TCPFlags=18");
  EXPECT_EQ(
      Decode(SFlowPacket(2).Flow({.elements = {PacketData6(3)}}).Build()).LastFields(),
      "hasIPv6Struct=1 srcIP=2001:db8::1 dstIP=2001:db8::2 IPProtocol=6" + kPorts + " TCPFlags=18");
}

const std::string kGeneric =
    "ifIndex=3 networkType=6 ifSpeed=1000000000 ifDirection=1 ifStatus=3 ifInOctets=5000000001"
    " ifInUcastPkts=10 ifInMulticastPkts=11 ifInBroadcastPkts=12 ifInDiscards=13 ifInErrors=14"
    " ifInUnknownProtos=15 ifOutOctets=6000000002 ifOutUcastPkts=20 ifOutMulticastPkts=21"
    " ifOutBroadcastPkts=22 ifOutDiscards=23 ifOutErrors=24 ifPromiscuousMode=25";

TEST(CounterBlocks, OfVersion5) {
  struct Row {
    std::uint32_t type;
    std::uint32_t words;
    std::string fields;
  };
  const Row rows[] = {{2, 13, ""}, {3, 18, ""},   {4, 20, ""},      {5, 7, "in_vlan=1"},
                      {6, 20, ""}, {1001, 7, ""}, {1, 22, kGeneric}};
  for (const bool expanded : {false, true}) {
    for (const Row& row : rows) {
      const SFlowElement block = {row.type,
                                  row.type == 1 ? GenericCounters() : CountedWords(row.words)};
      EXPECT_EQ(Decode(SFlowPacket().Counters({.elements = {block}, .expanded = expanded}).Build())
                    .LastFields(),
                row.fields)
          << row.type;
      SFlowElement wrong = block;
      wrong.length = 4 * row.words + 4;
      const Decoded decoded = Decode(
          SFlowPacket().Counters({.elements = {wrong, block}, .expanded = expanded}).Build());
      EXPECT_EQ(decoded.diagnostics, "counters_sample_element length error (expected " +
                                         std::to_string(4 * row.words + 4) + ", found " +
                                         std::to_string(4 * row.words) + ")\n");
    }
  }
}

// Agents of different years announce different sizes for these, and some that are no whole words.
TEST(CounterBlocks, OfAnyLength) {
  for (const std::uint32_t type : {1002U, 2000U, 2006U, 2100U, 2104U, 2200U, 2201U, 7U, 4099U}) {
    for (const std::uint32_t size : {0U, 3U, 36U, 80U}) {
      SFlowElement block = {type, Wire().Zeros(std::size_t{4} * ((size + 3) / 4))};
      block.length = size;
      EXPECT_EQ(
          Decode(SFlowPacket().Counters({.elements = {block, {5, CountedWords(7, 9)}}}).Build())
              .LastFields(),
          "in_vlan=9")
          << type << " of " << size;
    }
    const Decoded past_the_end =
        Decode(SFlowPacket().Counters({.elements = {{type, Wire(), 4}}}).Build());
    EXPECT_EQ(past_the_end.exit, SFExit::kEndOfDatagram) << type;
  }
}

TEST(CounterBlocks, OfVersions2And4) {
  const std::uint32_t further_words[] = {0, 13, 18, 0, 20, 0};  // block versions 1 to 6
  for (std::uint32_t block_version = 1; block_version <= 6; ++block_version) {
    const Wire block = Join({GenericCounters(), CountedWords(further_words[block_version - 1])});
    const Decoded decoded =
        Decode(SFlowPacket(block_version % 2 == 0 ? 2 : 4)
                   .Counters({.elements = {{1, block}}, .block_version = block_version})
                   .Flow({.elements = {PacketData4(2)}})
                   .Build());
    ASSERT_EQ(decoded.samples.size(), 2U) << block_version;
    EXPECT_EQ(decoded.samples[0].fields, kGeneric) << block_version;
  }
  EXPECT_EQ(Decode(SFlowPacket(4)
                       .Counters({.elements = {{1, CountedWords(7, 9)}}, .block_version = 7})
                       .Build())
                .LastFields(),
            "in_vlan=9");
  for (const std::uint32_t unknown : {0U, 8U}) {
    const Decoded decoded =
        Decode(SFlowPacket(4).Counters({.elements = {}, .block_version = unknown}).Build());
    EXPECT_EQ(decoded.samples.size(), 0U);
    EXPECT_EQ(decoded.exit, SFExit::kUnsupported);
    EXPECT_EQ(decoded.decode_ok, 0U);
  }
}

}  // namespace
}  // namespace flow::test
