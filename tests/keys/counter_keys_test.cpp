// SPDX-License-Identifier: Apache-2.0
#include "flowhandlers/counter_keys.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "flowhandlers/session_keys.h"

namespace flow::test {
namespace {

constexpr std::uint8_t kAddress6[16] = {0x20, 0x01, 0x0D, 0xB8, 0, 1, 0, 0xFE,
                                        0xA0, 9,    0,    0,    0, 0, 0, 0x10};
constexpr std::uint8_t kMac[6] = {0x00, 0x1B, 0x21, 0x3A, 0x4F, 0x5C};

struct Case {
  const char* key;  // as it has to be
  std::function<char*(char*)> write;
};

// Each into a heap block of exactly the key and its NUL.
TEST(CounterKeys, HaveTheirTexts) {
  const Ipv4Key exporter = MakeIpv4Key(0xC0A80101);
  const Case cases[] = {
      {"0000000A", [](char* out) { return OmbrelAPI::Long2Hex(10, out); }},
      {"FEDCBA98", [](char* out) { return OmbrelAPI::Long2Hex(0xFEDCBA98, out); }},
      {"C0.A8.01.0A", [](char* out) { return OmbrelAPI::Long2IPHex(0xC0A8010A, out); }},
      {"20010DB8000100FEA009000000000010",
       [](char* out) { return OmbrelAPI::IP62Hex(kAddress6, out); }},
      {"C0.A8.01.01_0000000A", [&](char* out) { return MakeIntfKey(exporter, 10, out); }},
      {"C0.A8.01.01_FFFFFFFF", [&](char* out) { return MakeIntfKey(exporter, 0xFFFFFFFF, out); }},
      {"C0.A8.01.00/18", [](char* out) { return MakeSubnetKey(0xC0A8014D, 24, out); }},
      {"C0.A8.00.00/14", [](char* out) { return MakeSubnetKey(0xC0A8014D, 20, out); }},
      {"80.00.00.00/01", [](char* out) { return MakeSubnetKey(0xC0A8014D, 1, out); }},
      {"C0.A8.01.4C/1F", [](char* out) { return MakeSubnetKey(0xC0A8014D, 31, out); }},
      {"00:1B:21:3A:4F:5C", [](char* out) { return FormatMAC(kMac, out); }},
      {"p-0050", [](char* out) { return MakePortKey(80, out); }},
      {"p-FFFE", [](char* out) { return MakePortKey(65534, out); }},
      {"06", [](char* out) { return MakeProtocolKey(6, out); }},
      {"FF", [](char* out) { return MakeProtocolKey(255, out); }},
      {"C0.A8.01.01_00000003_80000007",
       [&](char* out) { return WriteExporterPart(exporter, 3, 0x80000007, out); }},
      {"external", [](char* out) { return WriteText("external", out); }},
  };
  for (const Case& row : cases) {
    SCOPED_TRACE(row.key);
    std::vector<char> text(std::string(row.key).size() + 1, '?');
    EXPECT_EQ(row.write(text.data()), &text.back()) << "the position of the NUL";
    EXPECT_STREQ(text.data(), row.key);
  }
}

TEST(CounterKeys, KnowEveryHexPair) {
  for (unsigned value = 0; value < 256; ++value) {
    char expected[3];
    std::snprintf(expected, sizeof(expected), "%02X", value);
    char text[2];
    EXPECT_EQ(PutHex8(static_cast<std::uint8_t>(value), text), text + 2);
    EXPECT_EQ(std::string(text, 2), expected);
  }
}

}  // namespace
}  // namespace flow::test
