// SPDX-License-Identifier: Apache-2.0
// Which NetFlow v9 and IPFIX datagrams any lane may meter, and what its exporter's has to tell
// before.
#include "host/intake/template_ledger.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/host/captures.h"

namespace flow::host::test {
namespace {

constexpr char kTemplate[] = "0000 0018 0100 0004 0008 0004 000C 0004 0001 0004 0002 0004 ";
constexpr char kOther[] = "0000 0018 0100 0004 000C 0004 0008 0004 0001 0004 0002 0004 ";
constexpr char kNamed[] = "0000 0018 0100 0004 0008 0004 000C 0004 0001 0004 0052 0004 ";
constexpr char kRated[] = "0000 0018 0100 0004 0008 0004 000C 0004 0001 0004 0022 0004 ";
constexpr char kCut[] = "0000 0016 0100 0004 0008 0004 000C 0004 0001 0004 0002 ";
constexpr char kOptions[] = "0001 0014 0101 0004 0004 0001 0004 0022 0004 0000 ";
constexpr char kData[] = "0100 0014 0A000001 0A000002 00000064 00000001 ";
constexpr char kOtherOptions[] = "0001 0014 0101 0004 0004 0002 0004 0022 0004 0000 ";
constexpr char kOtherRate[] = "0101 000C 00000000 00000014 ";
constexpr char kRate[] = "0101 000C 00000000 0000000A ";
constexpr char kUnknown[] = "0102 0008 00000000 ";

// A datagram of v9 with so many sets, said or right.
std::string Sets(const std::string& sets, int count, int domain = 0) {
  return fmt::format("0009 {:04X} 00000064 6553F100 00000000 {:08X} ", count, domain) + sets;
}

struct Step {
  std::string datagram;
  bool is_data = false;
  bool tells = false;
  std::uint16_t port = 2000;
};
struct Case {
  const char* what;
  std::vector<Step> steps;
};

const Step kFirst{Sets(kTemplate, 1), false, true};
const Step kShared{Sets(kData, 1), true};
const Step kAtHome{Sets(kData, 1)};
const Step kOffer{Sets(kOptions, 1), false, true};
const Step kTold{Sets(kRate, 1), false, true};

const Case kCases[] = {
    {"data of a template that has come", {{Sets(kData, 1), false, true}, kFirst, kShared}},
    {"the same template again", {kFirst, {Sets(kTemplate, 1)}, kShared}},
    {"template and data in one", {{Sets(std::string(kTemplate) + kData, 2), false, true}, kShared}},
    {"another template with its id", {kFirst, {Sets(kOther, 1), false, true}, kShared}},
    {"names", {{Sets(kNamed, 1), false, true}, kAtHome}},
    {"rates in every record", {{Sets(kRated, 1), false, true}, kAtHome, {Sets(kTemplate, 1)}}},
    {"a template that is cut", {kFirst, {Sets(kCut, 1), false, true}, kAtHome}},
    {"a set beyond the header's count", {kFirst, {Sets(kData, 0)}}},
    {"bytes behind the sets", {kFirst, {Sets(std::string(kData) + "0000", 1)}}},
    {"a set that is broken", {kFirst, {Sets(std::string(kData) + "0100 00FF", 2)}}},
    {"a set of nobody's beside data, told once",
     {kFirst,
      {Sets(std::string(kData) + kUnknown, 2), false, true},
      {Sets(std::string(kData) + kUnknown, 2)},
      kShared}},
    {"a message that is shorter than it says", {{"000A 00FF" + std::string(24, '0') + kData}}},
    {"data of another port", {kFirst, {Sets(kData, 1), false, true, 2001}}},
    {"data of another domain", {kFirst, {Sets(kData, 1, 7), false, true}}},
    {"both domains alike",
     {kFirst, {Sets(kTemplate, 1, 7), false, true}, {Sets(kData, 1, 7), true}, kShared}},
    {"domains that differ",
     {kFirst, {Sets(kOther, 1, 7), false, true}, {Sets(kData, 1, 7)}, kAtHome}},
    {"a rate told by itself",
     {kFirst, {Sets(kOptions, 1), false, true}, {Sets(kRate, 1), false, true}, kShared}},
    {"a rate told again and again",
     {kFirst, kOffer, kTold, {Sets(kRate, 1)}, kShared, {Sets(kRate, 1)}}},
    {"rates that take turns",
     {kFirst, kOffer, kTold, {Sets(kOtherRate, 1), false, true}, kTold, {Sets(kRate, 1)}}},
    {"rates that take turns in one datagram",
     {kOffer,
      {Sets(std::string(kRate) + kOtherRate, 2), false, true},
      {Sets(std::string(kRate) + kOtherRate, 2)},
      kTold}},
    {"a rate told again by another template",
     {kOffer, kTold, {Sets(kOtherOptions, 1), false, true}, kTold, {Sets(kRate, 1)}}},
};

TEST(TemplateLedger, KnowsWhatAnyLaneMayMeter) {
  for (const Case& each : kCases) {
    SCOPED_TRACE(each.what);
    TemplateLedger ledger;
    for (std::size_t i = 0; i < each.steps.size(); ++i) {
      SCOPED_TRACE(i);
      const Step& step = each.steps[i];
      const auto kind =
          ledger.Take({IpAddress::Ipv4(1), step.port}, FromHex(step.datagram), 10 * (i + 1));
      EXPECT_EQ(kind.is_data, step.is_data);
      EXPECT_EQ(kind.tells, step.tells);
      EXPECT_GE(kind.known_from, step.tells ? 10 * (i + 1) : 0);
    }
  }
}

TEST(TemplateLedger, ForgetsWhatDidNotCome) {
  const Endpoint exporter{IpAddress::Ipv4(1), 2000};
  TemplateLedger ledger;
  const auto is_data = [&] { return ledger.Take(exporter, FromHex(kShared.datagram), 1).is_data; };
  const auto tell = [&](const std::string& sets) {
    ledger.Take(exporter, FromHex(Sets(sets, 1)), 1);
  };
  tell(kTemplate);
  EXPECT_TRUE(is_data());
  ledger.NoteLost(exporter.address);
  EXPECT_FALSE(is_data());
  tell(kTemplate);
  EXPECT_TRUE(is_data());
  tell(kOptions);
  tell(kRate);
  ledger.NoteReload();  // meters forget rates then
  EXPECT_FALSE(is_data());
  tell(kRate);  // which is news again
  EXPECT_TRUE(is_data());
  EXPECT_TRUE(ledger.LeaveAlone(exporter.address));
  EXPECT_FALSE(ledger.LeaveAlone(exporter.address));
  EXPECT_FALSE(is_data());
}

}  // namespace
}  // namespace flow::host::test
