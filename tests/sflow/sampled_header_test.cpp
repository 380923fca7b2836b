// SPDX-License-Identifier: Apache-2.0
// What the decoder finds in the first bytes of a sampled packet.

#include <gtest/gtest.h>

#include <ostream>

#include "tests/sflow/decoded.h"
#include "tests/support/sflow_builder.h"

namespace flow::test {
namespace {

// Fields of the frames below.
const std::string kMacs = "src=0200000000010000 dst=0200000000020000";
const std::string kIp4 = " srcIP=10.0.0.1 dstIP=10.0.0.2";
const std::string kIp6 = " srcIP=2001:db8::1 dstIP=2001:db8::2";
const std::string kTcp = " srcPort=51000 dstPort=80 TCPFlags=16";
const std::string kUdp = " srcPort=40000 dstPort=53 UDPBytes=120";

std::string Ethernet(int type) { return kMacs + " ethernet_type=" + std::to_string(type); }
std::string At(const char* version, int offset) {
  return std::string(" has") + version + "=1" +
         (offset == 0
              ? ""
              : (version[3] == '4' ? " ipv4Offset=" : " ipv6Offset=") + std::to_string(offset));
}
std::string Proto4(int protocol) {
  return kIp4 + " IPProtocol=" + std::to_string(protocol) + " IPTOS=32 IPTTL=64";
}
std::string Proto6(int protocol, int tos = 0) {
  return kIp6 + " IPProtocol=" + std::to_string(protocol) +
         (tos == 0 ? "" : " IPTOS=" + std::to_string(tos)) + " IPTTL=63";
}
std::string Payload(int offset) { return " payloadOffset=" + std::to_string(offset); }

// What a frame gives when it is decoded whole.
const std::string kWhole = Ethernet(2048) + At("IPv4", 14) + Proto4(6) + kTcp + Payload(54);

struct Case {
  const char* name;
  std::uint32_t protocol;
  Wire frame;
  std::string fields;

  friend void PrintTo(const Case& row, std::ostream* out) { *out << row.name; }
};

class SampledHeaderTest : public testing::TestWithParam<Case> {};

TEST_P(SampledHeaderTest, GivesFields) {
  const Case& row = GetParam();
  const Decoded decoded =
      Decode(SFlowPacket()
                 .Flow({.elements = {SampledHeader(row.frame, {.protocol = row.protocol})}})
                 .Build());
  const std::string expected = row.fields.starts_with(' ') ? row.fields.substr(1) : row.fields;
  EXPECT_EQ(decoded.LastFields(), expected);
  EXPECT_EQ(decoded.diagnostics, "");
}

std::string NameOf(const testing::TestParamInfo<Case>& info) { return info.param.name; }

Frame EthernetIp4() { return Frame().Ethernet().Ipv4().Tcp(); }

INSTANTIATE_TEST_SUITE_P(
    Ethernet, SampledHeaderTest,
    testing::ValuesIn<Case>({
        {"Tcp", 1, EthernetIp4(), kWhole},
        {"Udp", 1, Frame().Ethernet().Ipv4({.protocol = 17}).Udp(),
         Ethernet(2048) + At("IPv4", 14) + Proto4(17) + kUdp + Payload(42)},
        {"Icmp", 1, Frame().Ethernet().Ipv4({.protocol = 1}).Hex("0301000000000000"),
         Ethernet(2048) + At("IPv4", 14) + Proto4(1) + " srcPort=3 dstPort=1" + Payload(36)},
        {"ProtocolWithoutPorts", 1,
         Frame().Ethernet().Ipv4({.protocol = 47}).Hex("00000000000000ff"),
         Ethernet(2048) + At("IPv4", 14) + Proto4(47) + Payload(34)},
        {"IpOptions", 1, Frame().Ethernet().Ipv4({.version_and_length = 0x47}).Tcp(),
         Ethernet(2048) + At("IPv4", 14) + Proto4(6) + kTcp + Payload(62)},
        {"LaterFragment", 1, Frame().Ethernet().Ipv4({.fragment = 0x2001}).Tcp(),
         Ethernet(2048) + At("IPv4", 14) + Proto4(6) + " IPFragmentOffset=1"},
        {"FirstFragment", 1, Frame().Ethernet().Ipv4({.fragment = 0x2000}).Tcp(), kWhole},
        {"WrongVersion", 1, Frame().Ethernet().Ipv4({.version_and_length = 0x55}).Tcp(),
         Ethernet(2048)},
        {"ImpossibleHeaderLength", 1, Frame().Ethernet().Ipv4({.version_and_length = 0x44}).Tcp(),
         Ethernet(2048)},
        {"Vlan", 1, Frame().Ethernet(0x8100).Vlan(0xF064).Ipv4().Tcp(),
         Ethernet(2048) + " in_vlan=100" + At("IPv4", 18) + Proto4(6) + kTcp + Payload(58)},
        {"TwoVlanTagsShowTheOuterOne", 1,
         Frame().Ethernet(0x8100).Vlan(100, 0x8100).Vlan(200).Ipv4().Tcp(),
         Ethernet(0x8100) + " in_vlan=100"},
        {"Snap", 1, Frame().Ethernet(300).Hex("aaaa030000000800").Ipv4().Tcp(),
         Ethernet(2048) + At("IPv4", 22) + Proto4(6) + kTcp + Payload(62)},
        {"SnapIp6", 1, Frame().Ethernet(1500).Hex("aaaa0300000086dd").Ipv6().Tcp(),
         Ethernet(0x86DD) + At("IPv6", 22) + Proto6(6) + kTcp + Payload(82)},
        {"SnapOfAnotherOui", 1, Frame().Ethernet(300).Hex("aaaa030000010800").Ipv4().Tcp(), kMacs},
        {"SnapOfAnotherControl", 1, Frame().Ethernet(300).Hex("aaaa130000000800").Ipv4().Tcp(),
         kMacs},
        {"LlcIp", 1, Frame().Ethernet(300).Hex("060603").Ipv4().Tcp(),
         Ethernet(2048) + At("IPv4", 17) + Proto4(6) + kTcp + Payload(57)},
        {"LlcIpOfAnotherControl", 1, Frame().Ethernet(300).Hex("060602").Ipv4().Tcp(), kMacs},
        {"OtherLlc", 1, Frame().Ethernet(300).Hex("424203").Ipv4().Tcp(), kMacs},
        {"LengthAbove1500IsAType", 1, Frame().Ethernet(1501).Hex("060603").Ipv4().Tcp(),
         Ethernet(1501)},
        {"Ipx", 1, Frame().Ethernet(0x0200).Hex("ffff03").Ipv4().Tcp(), kMacs},
        {"IpxLengthWithLlc", 1, Frame().Ethernet(0x0201).Hex("060603").Ipv4().Tcp(),
         Ethernet(2048) + At("IPv4", 17) + Proto4(6) + kTcp + Payload(57)},
        {"LlcOfAnotherLengthWithFf", 1, Frame().Ethernet(0x0202).Hex("ffff03").Ipv4().Tcp(), kMacs},
        {"Arp", 1, Frame().Ethernet(0x0806).Zeros(28), Ethernet(0x0806)},
    }),
    NameOf);

INSTANTIATE_TEST_SUITE_P(
    Cut, SampledHeaderTest,
    testing::ValuesIn<Case>({
        {"Nothing", 1, Frame(), ""},
        {"MacsAlone", 1, EthernetIp4().Cut(13), ""},
        {"EthernetAlone", 1, EthernetIp4().Cut(14), kMacs},
        {"BeforeTheVlanTag", 1, Frame().Ethernet(0x8100).Vlan(100).Cut(15), kMacs},
        {"BehindTheVlanTag", 1, Frame().Ethernet(0x8100).Vlan(100).Cut(16), kMacs + " in_vlan=100"},
        {"BehindTheVlanType", 1, Frame().Ethernet(0x8100).Vlan(100).Ipv4().Cut(33),
         kMacs + " in_vlan=100"},
        {"IpOneByteShort", 1, EthernetIp4().Cut(33), kMacs},
        {"IpAlone", 1, EthernetIp4().Cut(34), Ethernet(2048) + At("IPv4", 14) + Proto4(6)},
        {"VlanIpCut", 1, Frame().Ethernet(0x8100).Vlan(100).Ipv4().Cut(37),
         Ethernet(2048) + " in_vlan=100"},
        {"VlanIpAlone", 1, Frame().Ethernet(0x8100).Vlan(100).Ipv4().Cut(38),
         Ethernet(2048) + " in_vlan=100" + At("IPv4", 18) + Proto4(6)},
        {"SevenBytesOfTcp", 1, EthernetIp4().Cut(41), Ethernet(2048) + At("IPv4", 14) + Proto4(6)},
        {"EightBytesOfTcp", 1, EthernetIp4().Cut(42),
         Ethernet(2048) + At("IPv4", 14) + Proto4(6) + " srcPort=51000 dstPort=80"},
        {"TcpBeforeItsFlags", 1, EthernetIp4().Cut(47),
         Ethernet(2048) + At("IPv4", 14) + Proto4(6) + " srcPort=51000 dstPort=80" + Payload(54)},
        {"TcpBehindItsFlags", 1, EthernetIp4().Cut(48), kWhole},
        {"OptionsBehindTheEnd", 1, Frame().Ethernet().Ipv4({.version_and_length = 0x4F}).Cut(34),
         Ethernet(2048) + At("IPv4", 14) + Proto4(6)},
    }),
    NameOf);

INSTANTIATE_TEST_SUITE_P(
    Ipv6, SampledHeaderTest,
    testing::ValuesIn<Case>({
        {"Tcp", 1, Frame().Ethernet(0x86DD).Ipv6(6, 0x65).Tcp(),
         Ethernet(0x86DD) + At("IPv6", 14) + Proto6(6, 5) + kTcp + Payload(74)},
        {"HopByHopThenTcp", 12, Frame().Ipv6(0).Extension(6).Tcp(),
         At("IPv6", 0) + Proto6(6) + kTcp + Payload(68)},
        {"LongChain", 12,
         Frame()
             .Ipv6(0)
             .Extension(43)
             .Extension(44, 2)
             .Extension(51)
             .Extension(60, 1)
             .Extension(17)
             .Udp(),
         At("IPv6", 0) + Proto6(17) + kUdp + Payload(112)},
        {"IcmpHasNoPorts", 12, Frame().Ipv6(58).Hex("8000000000000000"),
         At("IPv6", 0) + Proto6(58) + Payload(40)},
        {"ChainEndsWithTheHeader", 12, Frame().Ipv6(0).Extension(6), At("IPv6", 0) + Proto6(6)},
        {"ExtensionPastTheEnd", 12, Frame().Ipv6(0).Extension(6, 0, 1).Hex("00000000000000"),
         At("IPv6", 0) + kIp6 + " IPTTL=63"},
        {"ExtensionOfAByte", 12, Frame().Ipv6(0).Hex("06"), At("IPv6", 0) + kIp6 + " IPTTL=63"},
        {"OneByteShort", 12, Frame().Ipv6().Cut(39), At("IPv6", 0)},
        {"WrongVersionRaw", 12, Frame().Ipv6(6, 0x40).Tcp(), At("IPv6", 0)},
        {"WrongVersionInEthernet", 1, Frame().Ethernet(0x86DD).Ipv6(6, 0x40).Tcp(),
         Ethernet(0x86DD)},
        {"CutInEthernet", 1, Frame().Ethernet(0x86DD).Ipv6().Cut(53),
         Ethernet(0x86DD) + At("IPv6", 14)},
    }),
    NameOf);

// A frame whose addresses tell their places: 1 at offset 4, 2 at 10, 3 at 16, 4 at 24.
Wire Wifi(const char* frame_control, std::size_t size = 30) {
  return Frame()
      .Hex(frame_control)
      .Hex("0000")
      .Hex("010101010101020202020202030303030303")
      .Hex("0000040404040404")
      .Cut(size);
}

INSTANTIATE_TEST_SUITE_P(
    Other, SampledHeaderTest,
    testing::ValuesIn<Case>({
        {"RawIp4", 11, Frame().Ipv4().Tcp(), At("IPv4", 0) + Proto4(6) + kTcp + Payload(40)},
        {"RawIp4OfAnyVersion", 11, Frame().Ipv4({.version_and_length = 0x55}).Tcp(),
         At("IPv4", 0) + Proto4(6) + kTcp + Payload(40)},
        {"RawIp4Short", 11, Frame().Ipv4().Cut(19), At("IPv4", 0)},
        {"WifiBetweenStations", 15, Wifi("0800"), "src=0202020202020000 dst=0101010101010000"},
        {"WifiToAccessPoint", 15, Wifi("0801"), "src=0202020202020000 dst=0303030303030000"},
        {"WifiFromAccessPoint", 15, Wifi("0802"), "src=0303030303030000 dst=0101010101010000"},
        {"WifiBetweenAccessPoints", 15, Wifi("0803"), "src=0404040404040000 dst=0303030303030000"},
        {"WifiBetweenAccessPointsShort", 15, Wifi("0803", 29), ""},
        {"WifiShort", 15, Wifi("0801", 23), ""},
        {"WifiAtItsShortest", 15, Wifi("8802", 24), "src=0303030303030000 dst=0101010101010000"},
        {"WifiManagementFrame", 15, Wifi("8000"), ""},
        {"TokenRing", 2, EthernetIp4(), ""},
        {"Mpls", 13, EthernetIp4(), ""},
        {"LastUndecoded", 17, EthernetIp4(), ""},
    }),
    NameOf);

// A header that is not decoded leaves everything as it was; a decoded one clears the marks of the
// other IP version even where it finds nothing.
TEST(SampledHeader, LeavesEarlierFields) {
  const auto after = [](const Wire& frame, std::uint32_t protocol) {
    return Decode(SFlowPacket()
                      .Flow({.elements = {SampledHeader(EthernetIp4())}})
                      .Flow({.elements = {SampledHeader(frame, {.protocol = protocol})}})
                      .Build())
        .LastFields();
  };
  const std::string without_marks = Ethernet(2048) + " ipv4Offset=14" + Proto4(6) + kTcp;
  EXPECT_EQ(after(EthernetIp4(), 2), kWhole);
  EXPECT_EQ(after(Frame(), 1), without_marks + Payload(54));
  EXPECT_EQ(after(Frame(), 15), without_marks + Payload(54));
  EXPECT_EQ(after(EthernetIp4().Cut(47), 1), kWhole) << "without its flags";
  EXPECT_EQ(after(Frame(), 12),
            Ethernet(2048) + " ipv4Offset=14 hasIPv6=1" + Proto4(6) + kTcp + Payload(54));
  EXPECT_EQ(
      after(Frame().Ethernet().Ipv4({.fragment = 1}).Tcp(1, 2, 3), 1),
      Ethernet(2048) + At("IPv4", 14) + Proto4(6) + " IPFragmentOffset=1" + kTcp + Payload(54));
  EXPECT_EQ(after(Frame().Ipv4({.protocol = 17}).Udp(), 11),
            Ethernet(2048) + At("IPv4", 0) + Proto4(17) +
                " srcPort=40000 dstPort=53 TCPFlags=16 UDPBytes=120" + Payload(28));
}

TEST(SampledHeader, RawIpv4ClearsTheMarkOfIpv6) {
  const Decoded decoded =
      Decode(SFlowPacket()
                 .Flow({.elements = {SampledHeader(Frame().Ipv6().Tcp(), {.protocol = 12})}})
                 .Flow({.elements = {SampledHeader(Frame().Ipv4().Tcp(), {.protocol = 11})}})
                 .Build());
  EXPECT_EQ(" " + decoded.LastFields(), At("IPv4", 0) + Proto4(6) + kTcp + Payload(40));
}

TEST(SampledHeader, OfAnUndefinedProtocolEndsTheDatagram) {
  const auto decode = [](std::uint32_t protocol) {
    return Decode(SFlowPacket()
                      .Flow({.elements = {SampledHeader(EthernetIp4())}})
                      .Flow({.elements = {SampledHeader(Frame(), {.protocol = protocol})}})
                      .Flow({.elements = {SampledHeader(EthernetIp4())}})
                      .Build());
  };
  const std::pair<std::uint32_t, const char*> rows[] = {
      {0, "undefined headerProtocol = 0\n"},
      {18, "undefined headerProtocol = 18\n"},
      {0xFFFFFFFF, "undefined headerProtocol = -1\n"},
  };
  for (const auto& [protocol, text] : rows) {
    const Decoded decoded = decode(protocol);
    EXPECT_EQ(decoded.diagnostics, text);
    EXPECT_EQ(decoded.samples.size(), 1U) << text;
    EXPECT_EQ(decoded.exit, SFExit::kUndefinedHeader) << text;
    EXPECT_EQ(decoded.decode_ok, 1U) << text;
  }
}

}  // namespace
}  // namespace flow::test
