// SPDX-License-Identifier: Apache-2.0
// Packets of every link layer, through a capture file, as the intake sees them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pcap/dlt.h>
#include <zlib.h>
#include <zstd.h>

#include "host/base/error.h"
#include "host/capture/capture_reader.h"
#include "host/capture/udp_packet.h"
#include "tests/host/captures.h"

namespace flow::host::test {
namespace {

const Udp kUdp{Text("hello"), 2055};
const Udp6 kUdp6{Text("hello"), 2055};

Bytes With(Bytes packet, std::size_t at, std::uint8_t value) {
  packet[at] = value;
  return packet;
}

// Link-layer numbers of files differ from libpcap's for raw IP.
constexpr int kLinkTypeRaw = 101;

struct Case {
  const char* name;
  int link_type;
  Bytes packet;
  PacketKind kind = PacketKind::kUdp;
};

class Packets : public testing::TestWithParam<Case> {};

TEST_P(Packets, AreWhatTheyAre) {
  const TemporaryFolder folder;
  Capture{GetParam().link_type, {GetParam().packet}}.Write(folder / "a.pcap");
  CaptureReader reader((folder / "a.pcap").string());
  CapturedPacket packet;
  ASSERT_TRUE(reader.Next(&packet));
  UdpPacket udp;
  ASSERT_EQ(KindText(Dissect(reader.LinkType(), packet, &udp)), KindText(GetParam().kind));
  if (GetParam().kind != PacketKind::kUdp) return;
  EXPECT_EQ(udp.time, 1'700'000'000 * kMicrosPerSecond);
  const bool ipv6 = udp.ip[0] >> 4 == 6;
  EXPECT_EQ(udp.source.Text(), ipv6 ? "[2001:db8::1]:50000" : "10.0.0.1:50000");
  EXPECT_EQ(udp.destination.Text(), ipv6 ? "[2001:db8::2]:2055" : "10.0.0.2:2055");
  EXPECT_EQ(Bytes(udp.Payload().begin(), udp.Payload().end()), Text("hello"));
}

INSTANTIATE_TEST_SUITE_P(
    LinkLayers, Packets,
    testing::ValuesIn<Case>({
        {"Ethernet", DLT_EN10MB, Ethernet(kUdp.Packet())},
        {"EthernetPadding", DLT_EN10MB, Ethernet(kUdp.Packet()) + FromHex("000000000000")},
        {"OneVlanTag", DLT_EN10MB,
         FromHex("020000000001 020000000002 8100 0064 0800") + kUdp.Packet()},
        {"ThreeVlanTags", DLT_EN10MB,
         FromHex("020000000001 020000000002 88A8 0001 8100 0002 9100 0003 0800") + kUdp.Packet()},
        {"VlanTagAlone", DLT_EN10MB, FromHex("020000000001 020000000002 8100 0064"),
         PacketKind::kMalformed},
        {"Cooked", DLT_LINUX_SLL, FromHex("0000 0001 0006 020000000001 0000 0800") + kUdp.Packet()},
        {"Cooked2", DLT_LINUX_SLL2,
         FromHex("0800 0000 00000002 0001 00 06 0200000000010000") + kUdp.Packet()},
        {"Raw", kLinkTypeRaw, kUdp.Packet()},
        {"RawIpv6", kLinkTypeRaw, kUdp6.Packet()},
        {"EthernetIpv6", DLT_EN10MB, Ethernet(kUdp6.Packet())},
        {"Cooked2Ipv6", DLT_LINUX_SLL2,
         FromHex("86DD 0000 00000002 0001 00 06 0200000000010000") + kUdp6.Packet()},
        {"NullLittleEndian", DLT_NULL, FromHex("02000000") + kUdp.Packet()},
        {"NullBigEndian", DLT_NULL, FromHex("00000002") + kUdp.Packet()},
        {"NullIpv6OfMacOs", DLT_NULL, FromHex("1E000000") + kUdp6.Packet()},
        {"Loop", DLT_LOOP, FromHex("00000002") + kUdp.Packet()},
        {"Arp", DLT_EN10MB, FromHex("FFFFFFFFFFFF 020000000002 0806 0001"), PacketKind::kArp},
        {"SpanningTree", DLT_EN10MB, FromHex("0180C2000000 020000000002 0026 424203"),
         PacketKind::kOtherEthertype},
        {"EthernetCut", DLT_EN10MB, FromHex("020000000001 0200"), PacketKind::kMalformed},
    }),
    [](const auto& row) { return std::string(row.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Ipv4, Packets,
    testing::ValuesIn<Case>({
        {"WithOptions", kLinkTypeRaw,
         Udp{.payload = Text("hello"), .port = 2055, .options = "94040000"}.Packet()},
        {"FirstFragment", kLinkTypeRaw, With(kUdp.Packet(), 6, 0x20), PacketKind::kFragment},
        {"LaterFragment", kLinkTypeRaw, With(kUdp.Packet(), 7, 0x10), PacketKind::kFragment},
        {"DontFragment", kLinkTypeRaw, With(kUdp.Packet(), 6, 0x40)},
        {"Tcp", kLinkTypeRaw, With(kUdp.Packet(), 9, 6), PacketKind::kTcp},
        {"Icmp", kLinkTypeRaw, With(kUdp.Packet(), 9, 1), PacketKind::kIcmp},
        {"Gre", kLinkTypeRaw, With(kUdp.Packet(), 9, 47), PacketKind::kOtherProtocol},
        {"HeaderLengthFour", kLinkTypeRaw, With(kUdp.Packet(), 0, 0x44), PacketKind::kMalformed},
        {"HeaderPastTotal", kLinkTypeRaw, With(kUdp.Packet(), 0, 0x4F), PacketKind::kMalformed},
        {"TotalPastEnd", kLinkTypeRaw, With(kUdp.Packet(), 3, 34), PacketKind::kMalformed},
        {"NineteenBytes", kLinkTypeRaw, FromHex("45000021 00000000 40110000 0A000001 0A0000"),
         PacketKind::kMalformed},
        {"UdpLengthPastEnd", kLinkTypeRaw,
         Udp{.payload = Text("hello"), .udp_length_off = 1}.Packet(), PacketKind::kMalformed},
        {"UdpLengthSeven", kLinkTypeRaw,
         Udp{.payload = Text("hello"), .udp_length_off = -6}.Packet(), PacketKind::kMalformed},
    }),
    [](const auto& row) { return std::string(row.param.name); });

constexpr char kEightBytes[] = "11 00 000000000000";
INSTANTIATE_TEST_SUITE_P(
    Ipv6, Packets,
    testing::ValuesIn<Case>({
        {"Padded", kLinkTypeRaw, kUdp6.Packet() + FromHex("000000")},
        {"EveryExtension", kLinkTypeRaw,
         Udp6{Text("hello"), 2055, 0,
              "2B 01 0000000000000000000000000000"                  // hop-by-hop
              "3C 00 000000000000"                                  // routing
              "33 00 000000000000"                                  // destination
              "2C 04 00000000000000000000000000000000000000000000"  // authentication
              "8B 00 0000 00000000"                                 // a fragment that is the whole
              "11 00 000000000000"}                                 // host identity
             .Packet()},
        {"FirstFragment", kLinkTypeRaw,
         Udp6{Text("hello"), 2055, 44, "11 00 0001 00000007"}.Packet(), PacketKind::kFragment},
        {"LaterFragment", kLinkTypeRaw,
         Udp6{Text("hello"), 2055, 44, "11 00 0008 00000007"}.Packet(), PacketKind::kFragment},
        {"Tcp", kLinkTypeRaw, Udp6{Text("hello"), 2055, 6}.Packet(), PacketKind::kTcp},
        {"Icmpv6BehindOptions", kLinkTypeRaw,
         Udp6{Text("hello"), 2055, 0, "3A 00 050200000000"}.Packet(), PacketKind::kIcmp},
        {"Esp", kLinkTypeRaw, Udp6{Text("hello"), 2055, 50}.Packet(), PacketKind::kOtherProtocol},
        {"NothingBehind", kLinkTypeRaw, Udp6{Text("hello"), 2055, 59}.Packet(),
         PacketKind::kOtherProtocol},
        {"Version5", DLT_EN10MB, With(Ethernet(kUdp6.Packet()), 14, 0x50), PacketKind::kMalformed},
        {"LengthPastEnd", kLinkTypeRaw, Udp6{.payload = Text("hello"), .length_off = 1}.Packet(),
         PacketKind::kMalformed},
        {"UdpPastLength", kLinkTypeRaw, Udp6{.payload = Text("hello"), .length_off = -1}.Packet(),
         PacketKind::kMalformed},
        {"LengthZero", kLinkTypeRaw, Udp6{.payload = Text("hello"), .length_off = -13}.Packet(),
         PacketKind::kMalformed},
        {"ExtensionPastLength", kLinkTypeRaw,
         Udp6{.payload = {}, .first_header = 60, .extensions = "11 03 000000000000"}.Packet(),
         PacketKind::kMalformed},
        {"ExtensionsWithoutEnd", kLinkTypeRaw,
         Udp6{.payload = {},
              .first_header = 60,
              .extensions = "3C 00 000000000000 3C 00 000000000000",
              .length_off = -8}
             .Packet(),
         PacketKind::kMalformed},
        {"FixedHeaderCut", kLinkTypeRaw, FromHex("60000000 0000 1140"), PacketKind::kMalformed},
    }),
    [](const auto& row) { return std::string(row.param.name); });

// A packet that ends early is never read past its end, and none of its ends makes it a datagram.
TEST(Ipv6, IsWalkedWithinItsBytes) {
  const Bytes whole = Udp6{Text("hello"), 2055, 0,
                           std::string("2C 00 000000000000 3C 00 0000 00000000") + kEightBytes}
                          .Packet();
  for (std::size_t size = 0; size <= whole.size(); ++size) {
    const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
    UdpPacket udp;
    const CapturedPacket packet{0, cut, static_cast<std::uint32_t>(whole.size())};
    EXPECT_EQ(Dissect(DLT_IPV6, packet, &udp),
              size < whole.size() ? PacketKind::kCutShort : PacketKind::kUdp)
        << size;
  }
}

TEST(CaptureReader, TellsCutPacketsFromBadOnes) {
  const TemporaryFolder folder;
  Capture{.link_type = 1, .packets = {Ethernet(kUdp.Packet())}, .snap_length = 44}.Write(folder /
                                                                                         "a.pcap");
  CaptureReader reader((folder / "a.pcap").string());
  CapturedPacket packet;
  UdpPacket udp;
  ASSERT_TRUE(reader.Next(&packet));
  EXPECT_EQ(Dissect(reader.LinkType(), packet, &udp), PacketKind::kCutShort);
  EXPECT_FALSE(reader.Next(&packet));
}

std::string OpeningError(const std::filesystem::path& path) {
  try {
    const CaptureReader reader(path.string());
    return "";
  } catch (const HostError& error) {
    return error.what();
  }
}

TEST(CaptureReader, SaysWhyAFileIsNoCapture) {
  const TemporaryFolder folder;
  WriteFile(folder / "text", "not a capture at all, but long enough for a header");
  WriteFile(folder / "empty", "");
  Capture{105, {}}.Write(folder / "wireless");  // 802.11
  EXPECT_THAT(OpeningError(folder / "missing"), testing::HasSubstr("missing: No such file"));
  EXPECT_THAT(OpeningError(folder / "."), testing::HasSubstr("Is a directory"));
  EXPECT_THAT(OpeningError(folder / "text"), testing::HasSubstr("not a readable capture"));
  EXPECT_THAT(OpeningError(folder / "empty"), testing::HasSubstr("not a readable capture"));
  EXPECT_THAT(OpeningError(folder / "wireless"), testing::HasSubstr("link layer IEEE802_11"));
}

TEST(CaptureReader, GivesWhatStandsBeforeTheDamage) {
  const TemporaryFolder folder;
  Capture{1, {Ethernet(kUdp.Packet()), Ethernet(kUdp.Packet())}}.Write(folder / "a.pcap");
  const std::string whole = ReadFile(folder / "a.pcap");
  WriteFile(folder / "cut.pcap", whole.substr(0, whole.size() - 1));
  CaptureReader reader((folder / "cut.pcap").string());
  CapturedPacket packet;
  EXPECT_TRUE(reader.Next(&packet));
  EXPECT_THROW(reader.Next(&packet), HostError);
}

std::string Gzipped(const std::string& text) {
  const TemporaryFolder folder;
  const gzFile file = gzopen((folder / "gz").c_str(), "wb");
  gzwrite(file, text.data(), static_cast<unsigned>(text.size()));
  gzclose(file);
  return ReadFile(folder / "gz");
}

std::string Zstandard(const std::string& text) {
  std::string packed(ZSTD_compressBound(text.size()), '\0');
  ZSTD_CCtx* const context = ZSTD_createCCtx();
  ZSTD_CCtx_setParameter(context, ZSTD_c_checksumFlag, 1);
  ZSTD_inBuffer from{text.data(), text.size(), 0};
  ZSTD_outBuffer to{packed.data(), packed.size(), 0};
  ZSTD_compressStream2(context, &to, &from, ZSTD_e_continue);  // so that no size stands in front
  ZSTD_compressStream2(context, &to, &from, ZSTD_e_end);
  ZSTD_freeCCtx(context);
  packed.resize(to.pos);
  return packed;
}

// How many packets a file gives, and what is said in the end.
std::pair<int, std::string> PacketsOf(const std::string& bytes) {
  const TemporaryFolder folder;
  WriteFile(folder / "a", bytes);
  int packets = 0;
  try {
    CaptureReader reader((folder / "a").string());
    CapturedPacket packet;
    while (reader.Next(&packet)) ++packets;
  } catch (const HostError& error) {
    return {packets, error.what()};
  }
  return {packets, ""};
}

TEST(CaptureReader, ReadsWhatIsCompressed) {
  constexpr int kPackets = 5000;  // several buffers of every kind
  const TemporaryFolder folder;
  Capture{1, std::vector(kPackets, Ethernet(kUdp.Packet()))}.Write(folder / "a.pcap");
  const std::string plain = ReadFile(folder / "a.pcap");
  const std::string start = plain.substr(0, 1000);
  const std::string rest = plain.substr(1000);
  const auto all = testing::Pair(kPackets, "");
  for (const auto& compress : {+[](const std::string& text) { return Gzipped(text); },
                               +[](const std::string& text) { return Zstandard(text); }}) {
    const std::string whole = compress(plain);
    EXPECT_THAT(PacketsOf(whole), all);
    EXPECT_THAT(PacketsOf(compress(start) + compress("") + compress(rest)), all);
    const auto damaged = [&](std::size_t least, const std::string& why) {
      return testing::Pair(
          testing::AllOf(testing::Ge(static_cast<int>(least)), testing::Le(kPackets)),
          testing::HasSubstr(why));
    };
    for (const std::size_t size : {whole.size() - 1, whole.size() / 2, std::size_t{5}}) {
      EXPECT_THAT(PacketsOf(whole.substr(0, size)), damaged(0, "it ends in the middle")) << size;
    }
    std::string flipped = whole;
    flipped.back() ^= 1;  // in a checksum
    EXPECT_THAT(PacketsOf(flipped), damaged(kPackets / 2, ": damaged, read up to there: "));
    EXPECT_THAT(PacketsOf(compress(start) + compress(rest).replace(20, 9, "different")),
                damaged(10, ": damaged, read up to there: "));
    EXPECT_THAT(PacketsOf(whole + "garbage"), damaged(kPackets, "damaged, read up to there"));
    EXPECT_THAT(PacketsOf(compress("not a capture, but long enough for one")),
                testing::Pair(0, testing::HasSubstr("not a readable capture: unknown file")));
  }
}

TEST(CaptureReader, RefusesAWindowThatIsTooLarge) {
  const Bytes frame = FromHex("28B52FFD 00 90 010000");  // 256 MiB
  EXPECT_THAT(PacketsOf(std::string(frame.begin(), frame.end())),
              testing::Pair(0, testing::HasSubstr("too much memory")));
}

}  // namespace
}  // namespace flow::host::test
