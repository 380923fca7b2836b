// SPDX-License-Identifier: Apache-2.0
// What addresses, interfaces and numbers are called.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

#include "host/ask/key_names.h"
#include "host/base/error.h"

namespace flow::host::test {
namespace {

std::string Write(const std::string& name, const std::string& text) {
  std::string path = testing::TempDir() + name + "." + std::to_string(getpid());
  std::ofstream(path, std::ios::binary) << text;
  return path;
}

IpAddress At(const std::string& text) { return *IpAddress::Parse(text); }

TEST(KeyNames, ComeFromTheFile) {
  KeyNames names;
  names.ReadFile(Write("names",
                       "# a comment\n\n"
                       "10.0.0.5 backup-1\n"
                       "  10.0.0.0/8\tall of ours  \r\n"
                       "10.1.0.0/16 office\n"
                       "0.0.0.0/0 elsewhere\n"
                       "2001:db8::/33 six\n"
                       "10.0.0.1:3 uplink\n"
                       "[2001:db8::1]:4294967295 far\n"
                       "as64500 Example Net\n"
                       "8443 console\n8443/udp game\n"));
  EXPECT_EQ(names.OfAddress(At("10.0.0.5")), "backup-1");
  EXPECT_EQ(names.OfAddress(At("10.0.0.6")), "all of ours");
  EXPECT_EQ(names.OfAddress(At("10.1.255.255")), "office");
  EXPECT_EQ(names.OfAddress(At("10.2.0.0")), "all of ours");
  EXPECT_EQ(names.OfAddress(At("192.0.2.1")), "elsewhere");
  EXPECT_EQ(names.OfAddress(At("2001:db8:7fff::1")), "six");
  EXPECT_EQ(names.OfAddress(At("2001:db8:8000::1")), "");
  EXPECT_EQ(names.OfInterface(At("10.0.0.1"), 3), "uplink");
  EXPECT_EQ(names.OfInterface(At("2001:db8::1"), 4294967295), "far");
  EXPECT_EQ(names.OfInterface(At("10.0.0.1"), 4), "");
  EXPECT_EQ(names.OfAs(64500), "Example Net");
  EXPECT_EQ(names.OfPort(8443, 17), "game");
  EXPECT_EQ(names.OfPort(8443, 6), "console");
}

TEST(KeyNames, WrongLinesAreNamed) {
  for (const char* const line :
       {"10.0.0.5", "10.0.0.256 a", "10.0.0.0/33 a", "10.0.0.1:x a", "2001:db8::1:3:g a", "as a",
        "65536 a", "80/frob a", "nonsense a", "10.0.0.5  "}) {
    const std::string path = Write("wrong", std::string("# fine\n") + line + "\n");
    KeyNames names;
    try {
      names.ReadFile(path);
      ADD_FAILURE() << line;
    } catch (const UsageError& error) {
      EXPECT_THAT(error.what(), testing::StartsWith(path + ":2: ")) << line;
    }
  }
}

// A database of one network, 10.0.0.0/8: a tree of eight nodes, a node a bit.
std::string GeoFile() {
  const auto text = [](const std::string& value) {
    return static_cast<char>(0x40 | static_cast<int>(value.size())) + value;
  };
  const auto number = [](char kind, std::uint32_t value) {  // of four bytes
    std::string bytes(1, kind);
    for (int shift = 24; shift >= 0; shift -= 8) {
      bytes.push_back(static_cast<char>(value >> shift & 0xFF));
    }
    return bytes;
  };
  const auto map = [](int size) { return std::string(1, static_cast<char>(0xE0 | size)); };
  constexpr char kUint32 = '\xC4';
  constexpr std::uint32_t kNodes = 8;
  std::string file;
  for (std::uint32_t node = 0; node < kNodes; ++node) {
    const std::uint32_t next = node + 1 < kNodes ? node + 1 : kNodes + 16;
    const bool bit = (10U >> (7 - node) & 1U) != 0;
    for (const bool side : {false, true}) {
      file += number(kUint32, side == bit ? next : kNodes).substr(2);
    }
  }
  file += std::string(16, '\0');
  file += map(3) + text("country") + map(1) + text("iso_code") + text("DE");
  file += text("autonomous_system_number") + number(kUint32, 64500);
  // Texts of 29 bytes and more have their length in the next byte.
  const std::string organization = "autonomous_system_organization";
  file += '\x5D' + std::string(1, static_cast<char>(organization.size() - 29)) + organization;
  file += text("Example");
  file += "\xAB\xCD\xEFMaxMind.com" + map(9);
  const auto small = [&](const std::string& name, char value) {
    file += text(name) + std::string("\xA1") + value;
  };
  file += text("node_count") + number(kUint32, kNodes);
  small("record_size", 24);
  small("ip_version", 4);
  file += text("database_type") + text("Test") + text("languages") + std::string("\0\x04", 2);
  small("binary_format_major_version", 2);
  small("binary_format_minor_version", 0);
  file += text("build_epoch") + std::string("\x01\x02\x01", 3);
  file += text("description") + map(0);
  return file;
}

TEST(KeyNames, HaveCountryAndAsBehindThem) {
  KeyNames names;
  names.ReadGeo(Write("geo.mmdb", GeoFile()));
  EXPECT_EQ(names.OfAddress(At("10.1.2.3")), "DE, AS64500 Example");
  EXPECT_EQ(names.OfAddress(At("11.0.0.0")), "");
  EXPECT_EQ(names.OfAddress(At("2001:db8::1")), "");
  names.ReadFile(Write("names", "10.1.2.3 backup-1\n"));
  EXPECT_EQ(names.OfAddress(At("10.1.2.3")), "backup-1 (DE, AS64500 Example)");
  EXPECT_THROW(names.ReadGeo(Write("no.mmdb", "nothing")), HostError);
  EXPECT_THROW(names.ReadGeo("/nowhere"), HostError);
}

// The hosts file knows this one on every system.
TEST(KeyNames, AreAskedForInTheDns) {
  KeyNames names;
  EXPECT_EQ(names.OfAddress(At("127.0.0.1")), "");
  names.AskDns();
  EXPECT_EQ(names.OfAddress(At("127.0.0.1")), "localhost");
}

}  // namespace
}  // namespace flow::host::test
