// SPDX-License-Identifier: Apache-2.0
// make_seeds FOLDER: writes seeds for every fuzz target, valid inputs that reach what the target
// decodes, into a folder per target.

#include <cstdio>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fuzz/netflow_grammar.h"
#include "fuzz/seed_folder.h"
#include "plugin/policy_settings.h"
#include "tests/support/datagram_builders.h"
#include "tests/support/policy_file.h"
#include "tests/support/samples.h"
#include "tests/support/sflow_builder.h"

namespace {

using flow::fuzz::Datagram;
using flow::fuzz::SeedFolder;
using flow::test::Bytes;

void MakeDatagramSeeds(const std::filesystem::path& root) {
  SeedFolder netflow(root, "netflow");
  SeedFolder channel(root, "channel");
  for (unsigned int seed = 1; seed <= 120; ++seed) {
    flow::fuzz::Random random(seed * 7919);
    const auto policy = static_cast<std::uint8_t>(seed);
    const auto exporter = static_cast<std::uint8_t>(random.Below(4));
    std::vector<Datagram> datagrams;
    for (int i = 0; i < 3; ++i) datagrams.push_back({exporter, flow::fuzz::MakeNetflow(random)});
    netflow.Add(policy, datagrams);
    Bytes message = flow::test::UdpHeaders(flow::fuzz::ExporterOf(exporter), 0);
    message.resize(24);
    const Bytes set = flow::fuzz::MakeTemplateSet(random);
    message.insert(message.end(), set.begin(), set.end());
    datagrams.insert(datagrams.begin(), {static_cast<std::uint8_t>(exporter | 0x80), message});
    channel.Add(policy, datagrams);
  }
}

void MakeSFlowSeeds(const std::filesystem::path& root) {
  SeedFolder sflow(root, "sflow");
  std::uint8_t policy = 0;
  for (const auto& datagram : flow::test::SFlowDatagrams()) {
    sflow.Add(policy++, {{0, datagram.bytes}});
  }
}

// What real exporters sent: the first datagrams of each capture as one input.
void MakeRecordedSeeds(const std::filesystem::path& root) {
  SeedFolder netflow(root, "netflow", "recorded-");
  SeedFolder sflow(root, "sflow", "recorded-");
  constexpr std::size_t kMost = 6;
  const auto recorded = flow::test::RecordedDatagrams();
  std::uint8_t policy = 0;
  for (auto from = recorded.begin(); from != recorded.end();) {
    const std::string capture = from->name.substr(0, from->name.find(' '));
    std::vector<Datagram> datagrams;
    for (; from != recorded.end() && from->name.starts_with(capture + " "); ++from) {
      if (datagrams.size() < kMost) datagrams.push_back({0, from->bytes});
    }
    (capture.starts_with("sflow") ? sflow : netflow).Add(policy++, datagrams);
  }
}

constexpr std::string_view kDocuments[] = {
    "<Root/>",
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Root a=\"1\" b='2' c=3 d><X>t &amp; "
    "&lt;</X></Root>",
    "<Root><!-- c --><A>1</A><a>2</a><B/><![CDATA[ <x> ]]>text<PRE> p </PRE></Root>",
    "<!DOCTYPE Root><Root><A><B><C>deep</C></B></A>&#65;&#x42;&quot;&apos;&gt;</Root>",
    "<Root><A></Root>",
    "<Root>&unknown;</Root>",
    "\xEF\xBB\xBF<Root>\xC3\xA9</Root>",
    "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><Root>\xE9</Root>",
    "<Root><Script> if (a < b) </Script></Root>",
};

void MakeXmlSeeds(const std::filesystem::path& root) {
  SeedFolder xml(root, "xml");
  for (const std::string_view document : kDocuments) {
    for (const char options : {'\x07', '\x0F', '\x02', '\x08'}) {
      xml.Add(std::string(1, options) + std::string(document));
    }
  }
}

struct PolicySeed {
  std::string_view settings;
  std::string_view beside;
};
constexpr PolicySeed kPolicies[] = {
    {"", ""},
    {"<MeterHosts>FALSE</MeterHosts><MeterBothPorts> true </MeterBothPorts>", ""},
    {"<FilterInterfacesInclude>10.1.2.3_7,0A.01.02.03_00000007,x</FilterInterfacesInclude>", ""},
    {"<FilterInterfacesInclude>1.2.3.4_5</FilterInterfacesInclude>"
     "<FilterInterfacesExclude>1.2.3.4_5</FilterInterfacesExclude>",
     ""},
    {"<FilterHostsExclude>10.0.0.1,,10.0.0.300, 1.1.1.1</FilterHostsExclude>", ""},
    {"<FilterHostsInclude>1.1.1.1</FilterHostsInclude><FilterHostsExclude>2.2.2.2"
     "</FilterHostsExclude>",
     ""},
    {"<HomeASNumbers>100,0x10,010,abc</HomeASNumbers>"
     "<IgnoreV9EgressFromDevices>10.0.0.1</IgnoreV9EgressFromDevices>",
     ""},
    {"<AddL2AccountingBytes>18</AddL2AccountingBytes>"
     "<TemplateDumpIntervalSeconds>-3</TemplateDumpIntervalSeconds>"
     "<ReloadConfigCheckSeconds>60</ReloadConfigCheckSeconds>",
     ""},
    {"<HomeASNumbersFile>feed</HomeASNumbersFile>", ""},
    {"",
     "<StaticTemplates><Template id=\"256\" name=\"a\"><Fields>8,12,4,1,2</Fields></Template>"
     "<Template id=\"256\"><Fields>8</Fields></Template><Template><Fields>8</Fields></Template>"
     "<Template id=\"3\" name=\"b\"><Fields>999</Fields></Template></StaticTemplates>"},
    {"",
     "<SamplingRates><Rate router=\"10.0.0.1\" rate=\"100\"/><Rate router=\"x\" rate=\"1\"/>"
     "<Rate router=\"0.0.0.0\" rate=\"a\"/><Rate/></SamplingRates>"},
};

void MakePolicySeeds(const std::filesystem::path& root) {
  SeedFolder policy(root, "policy");
  for (const PolicySeed& seed : kPolicies) {
    policy.Add(flow::test::PolicyXml(seed.settings, seed.beside));
  }
}

// The elements of the settings, for the dictionary.
void MakePolicyWords(const std::filesystem::path& root) {
  std::string words;
  const auto add = [&](std::span<const flow::PolicySetting> settings) {
    for (const flow::PolicySetting& setting : settings) {
      const std::string key(setting.key);
      words += "\"<" + key + ">\"\n\"</" + key + ">\"\n";
    }
  };
  add(flow::kNetflowSettings);
  add(flow::kSFlowSettings);
  flow::test::WriteFile(root / "policy.dict", words);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: make_seeds FOLDER\n");
    return 2;
  }
  MakeDatagramSeeds(argv[1]);
  MakeSFlowSeeds(argv[1]);
  MakeRecordedSeeds(argv[1]);
  MakeXmlSeeds(argv[1]);
  MakePolicySeeds(argv[1]);
  MakePolicyWords(argv[1]);
  return 0;
}
