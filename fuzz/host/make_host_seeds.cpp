// SPDX-License-Identifier: Apache-2.0
// make_host_seeds FOLDER: writes seeds for the fuzz targets of the host, into a folder per target.

#include <zlib.h>
#include <zstd.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/host/sequence.h"
#include "fuzz/host/sequence_grammar.h"
#include "fuzz/seed_folder.h"
#include "tests/host/captures.h"
#include "tests/support/samples.h"

namespace {

using flow::fuzz::Datagram;
using flow::fuzz::Random;
using flow::fuzz::SeedFolder;
using flow::host::test::Bytes;
using flow::host::test::FromHex;
using flow::host::test::operator+;
using flow::host::test::Udp;
using flow::host::test::Udp6;

// What stands in front of an IP packet, by the link types of files.
struct LinkLayer {
  int link_type;
  const char* ipv4;
  const char* ipv6;
};
constexpr LinkLayer kLinkLayers[] = {
    {1, "020000000001 020000000002 0800", "020000000001 020000000002 8100 0064 86DD"},
    {113, "0000 0001 0006 020000000001 0000 0800", "0000 0001 0006 020000000001 0000 86DD"},
    {276, "0800 0000 00000002 0001 00 06 0200000000010000",
     "86DD 0000 00000002 0001 00 06 0200000000010000"},
    {101, "", ""},
    {0, "02000000", "0000001E"},
    {108, "00000002", "0000000A"},
};

std::vector<Bytes> Packets() {
  const Bytes payload = flow::host::test::Text("hello");
  Bytes fragment = Udp{payload, 2055}.Packet();
  fragment[6] = 0x20;
  return {Udp{payload, 2055}.Packet(),
          Udp{.payload = payload, .options = "94040000"}.Packet(),
          fragment,
          Udp6{payload, 2055}.Packet(),
          Udp6{payload, 2055, 0,
               "2B01 0000000000000000000000000000 2C00 000000000000 1100 00000000"
               "0000"}
              .Packet(),
          Udp6{payload, 2055, 44, "11 00 0008 00000007"}.Packet()};
}

std::vector<std::string> PlainCaptures() {
  const flow::host::test::TemporaryFolder folder;
  std::vector<std::string> captures;
  const auto add = [&](const flow::host::test::Capture& capture) {
    capture.Write(folder / "capture");
    captures.push_back(flow::host::test::ReadFile(folder / "capture"));
  };
  for (const LinkLayer& layer : kLinkLayers) {
    std::vector<Bytes> packets;
    for (const Bytes& packet : Packets()) {
      packets.push_back(FromHex(packet[0] >> 4 == 6 ? layer.ipv6 : layer.ipv4) + packet);
    }
    add({layer.link_type, packets});
  }
  add({101, Packets(), 30});
  return captures;
}

// A section, an interface with a resolution of nanoseconds, a packet in an enhanced, a simple and
// an old block, statistics, names.
Bytes Pcapng() {
  const Bytes packet = Udp{flow::host::test::Text("hi!"), 2055}.Packet();  // 31 bytes
  const Bytes padded = packet + Bytes{0};
  return FromHex(
             "0A0D0D0A 0000001C 1A2B3C4D 0001 0000 FFFFFFFFFFFFFFFF 0000001C"
             "00000001 0000002C 0065 0000 0000FFFF 0009 0001 09000000 000E 0008 00000000"
             "00000000 0000 0000 0000002C") +
         FromHex("00000006 00000040 00000000 00062A36 71770000 0000001F 0000001F") + padded +
         FromHex("00000040 00000003 00000030 0000001F") + padded +
         FromHex("00000030 00000002 00000040 0000 0000 00062A36 71770000 0000001F 0000001F") +
         padded +
         FromHex(
             "00000040 00000005 00000018 00000000 00062A36 71770000 00000018"
             "00000004 00000010 0000 0000 00000010");
}

std::string Gzipped(const std::string& text) {
  z_stream stream{};
  deflateInit2(&stream, 9, Z_DEFLATED, MAX_WBITS + 16, 9, Z_DEFAULT_STRATEGY);
  std::string out(deflateBound(&stream, text.size()) + 64, '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  deflate(&stream, Z_FINISH);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return out;
}

std::string Zstandard(const std::string& text) {
  std::string out(ZSTD_compressBound(text.size()), '\0');
  out.resize(ZSTD_compress(out.data(), out.size(), text.data(), text.size(), 3));
  return out;
}

void MakeCaptureSeeds(const std::filesystem::path& root) {
  SeedFolder folder(root, "capture");
  folder.Add(Pcapng());
  for (const std::string& capture : PlainCaptures()) folder.Add(capture);
  const std::string one = PlainCaptures()[0];
  folder.Add(Gzipped(one));
  folder.Add(Gzipped(one.substr(0, 200)) + Gzipped(one.substr(200)));
  folder.Add(Zstandard(one));
  folder.Add(Zstandard(one.substr(0, 200)) + Zstandard(one.substr(200)));
}

// The first datagrams of each capture by a real exporter, as a capture of their own.
void MakeRecordedSeeds(const std::filesystem::path& root) {
  const flow::host::test::TemporaryFolder temporary;
  SeedFolder folder(root, "capture", "recorded-");
  constexpr std::size_t kMost = 3;
  flow::host::test::Capture capture{101, {}};
  std::string name;
  const auto write = [&] {
    if (capture.packets.empty()) return;
    capture.Write(temporary / "capture");
    folder.Add(flow::host::test::ReadFile(temporary / "capture"));
    capture.packets.clear();
  };
  for (const auto& datagram : flow::test::RecordedDatagrams()) {
    const std::string from = datagram.name.substr(0, datagram.name.find(' '));
    if (from != name) write();
    name = from;
    if (capture.packets.size() < kMost) {
      capture.packets.push_back(Udp{datagram.bytes, 2055}.Packet());
    }
  }
  write();
}

constexpr std::string_view kHead = "flowhost templates 1\n";
// Where a v9 template set came from, up to the length of the set.
constexpr std::string_view kCarrier =
    "1699999990 450000000000000000110000C00002010A000001C35008070000";

void MakeTemplateStateSeeds(const std::filesystem::path& root) {
  SeedFolder folder(root, "template_state");
  const std::string head(kHead);
  const std::string one = std::string(kCarrier) + "000C0100000100010004\n";
  folder.Add(head + "end 0\n");
  folder.Add(head + one + "end 1\n");
  folder.Add(head + one + one + "end 2\n");
  folder.Add(head + one);
  for (unsigned int seed = 1; seed <= 40; ++seed) {
    Random random(seed * 104729);
    std::string text = head;
    int lines = 0;
    while (lines < 3) {
      const Datagram entry = flow::fuzz::MakeEntry(random);
      const auto step = static_cast<flow::fuzz::Step>(entry.exporter % flow::fuzz::kSteps);
      if ((entry.exporter & flow::fuzz::kStep) == 0 || step > flow::fuzz::Step::kDomainMessage) {
        continue;
      }
      text += "1699999990 ";
      if (step == flow::fuzz::Step::kDomainMessage) text += "domain ";
      for (const std::uint8_t byte : entry.payload) {
        constexpr char kDigits[] = "0123456789ABCDEF";
        text += {kDigits[byte >> 4], kDigits[byte & 15]};
      }
      text += "\n";
      ++lines;
    }
    folder.Add(text + "end 3\n");
  }
  folder.Add("flowhost stand-ins 1\n240.0.0.1 2001:db8::1:2:3 1699999990\nend 1\n");
  folder.Add(
      "flowhost stand-ins 1\n240.0.0.1 2001:db8::1 1699999990\n240.255.255.254 2001:db8::2 1\n"
      "end 2\n");
}

void MakeSequenceSeeds(const std::filesystem::path& root) {
  SeedFolder folder(root, "sequence");
  for (unsigned int seed = 1; seed <= 120; ++seed) {
    Random random(seed * 7919);
    std::vector<Datagram> entries;
    for (int i = 0; i < 8; ++i) entries.push_back(flow::fuzz::MakeEntry(random));
    folder.Add(static_cast<std::uint8_t>(random()), entries);
  }
}

constexpr std::string_view kQuestions[] = {
    "host 10.0.0.5\n-1h\nnow\nyesterday",
    "src net 10.0.0.0/8 and not dst port 443\nyesterday\n\n-48h",
    "(udp or tcp) and bytes > 1.5M\ntoday 02:00\n03:00\n2026-11-20",
    "src or dst as 64500, 64501\n2026-11-24\n2026-11-25 22:00:30",
    "vrf \"a b\" || user 'x' && ! app p-0050\n@1795564800\n@1795568400",
    "in interface 3,5-9 exporter 2001:db8::1\n02:00\n5m",
    "mac 00:1b:21:0a:0b:0c or duration >= 1m pps < 0.01k",
    "nexthop 10.0.0.254 bgpnexthop != ::/0 proto gre ipv6",
};

void MakeFilterSeeds(const std::filesystem::path& root) {
  SeedFolder folder(root, "filter");
  for (const std::string_view question : kQuestions) folder.Add(question);
}

constexpr std::string_view kLessons[] = {
    R"({"kind":"templates","collector":"b","run":7,"sampler_address":"192.0.2.1","port":2055,)"
    R"("told":5,"domain":9,"bytes":"0000000c0100000100010004"})",
    R"({"kind":"templates","collector":"b","run":7,"sampler_address":"2001:db8::1","port":1,)"
    R"("told":5,"bytes":"00010016012c00040008000100040022000400230001"})",
    R"({"kind":"rate","collector":"b","run":7,"sampler_address":"192.0.2.1","port":2055,"told":5,)"
    R"("bytes":"0009000200001388693000000000000100000007)"
    R"(00010016012c00040008000100040022000400230001012c0010000000000000006401000000"})",
};

void MakeLessonSeeds(const std::filesystem::path& root) {
  SeedFolder folder(root, "lesson");
  for (const std::string_view lesson : kLessons) folder.Add(lesson);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: make_host_seeds FOLDER\n");
    return 2;
  }
  MakeCaptureSeeds(argv[1]);
  MakeRecordedSeeds(argv[1]);
  MakeTemplateStateSeeds(argv[1]);
  MakeSequenceSeeds(argv[1]);
  MakeFilterSeeds(argv[1]);
  MakeLessonSeeds(argv[1]);
  return 0;
}
