// SPDX-License-Identifier: Apache-2.0
#include "tests/netflow/meter_test.h"

#include <arpa/inet.h>

#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <sstream>

namespace flow::test {
namespace {

unsigned long HexNumber(const std::string& digits) {
  return std::strtoul(digits.c_str(), nullptr, 16);
}

// An address in a key, as people write it.
std::string AddressText(std::string digits) {
  std::erase(digits, '.');
  const Bytes bytes = Wire().HexText(digits).Get();
  char text[INET6_ADDRSTRLEN];
  inet_ntop(bytes.size() == 4 ? AF_INET : AF_INET6, bytes.data(), text, sizeof text);
  return text;
}

// 06C:0A.00.00.01:p-C738_0A.00.00.02:p-0050_C0.00.02.01_00000003_00000007, or D: and 32 digits.
std::string KeyText(const std::string& key) {
  if (key == "\"\"") return "no key";
  const std::size_t width = key[2] == 'C' ? 11 : 32;
  const std::size_t second = 4 + width + 8;
  const std::size_t interfaces = second + width + 8 + 12;
  std::ostringstream out;
  out << HexNumber(key.substr(0, 2)) << " " << AddressText(key.substr(4, width)) << ":"
      << HexNumber(key.substr(4 + width + 3, 4)) << " > " << AddressText(key.substr(second, width))
      << ":" << HexNumber(key.substr(second + width + 3, 4)) << " if "
      << HexNumber(key.substr(interfaces, 8)) << " > " << HexNumber(key.substr(interfaces + 9, 8));
  return out.str();
}

// What the calls for a record say, and in which of their words.
struct Piece {
  const char* call;
  const char* group;
  const char* name;
  std::vector<std::size_t> words;
};
const Piece kPieces[] = {
    {"UpdateCounter2", "COUNTERID_ASN", "as", {3}},
    {"UpdateCounter3", "COUNTERID_PREFIX4", "net", {3}},
    {"UpdateCounter3", "COUNTERID_PREFIX6", "net", {3}},
    {"UpdateCounter", "COUNTERID_BGPNEXTHOP", "bgp", {2}},
    {"UpdateCounter", "COUNTERID_IPNEXTHOP", "hop", {2}},
    {"UpdateCounter", "COUNTERID_VRF", "in", {2}},
    {"UpdateCounter2", "COUNTERID_NBAR", "tag", {3}},
    {"SetFlowTimes", "COUNTERID_FLOWS", "from", {3, 4}},
    {"SetFlowTimes", "COUNTERID_FLOWS", "to", {5, 6}},
    {"SetFlowDuration", "COUNTERID_FLOWS", "for", {3}},
    {"CloseFlow", "COUNTERID_FLOWS", "closed", {}},
    {"UpdateCounter", "COUNTERID_APPID", "app", {2, 3}},
    {"UpdateCounter", "COUNTERID_USERID", "user", {2, 3}},
    {"UpdateCounterKeyLen", "COUNTERID_MAC", "mac", {3}},
};

// The calls of one record, in words.
std::string FlowText(const std::vector<Texts>& calls) {
  std::string key;
  std::string volume;
  std::string rest;
  for (const Texts& words : calls) {
    if (words[0] == "UpdateFlowCounter" && key.empty()) key = KeyText(words[2]);
    if (words.size() > 7 && words[3] == "TOTALBW") {
      volume = ", " + words[5] + " bytes " + words[7] + " packets";
    }
    for (const Piece& piece : kPieces) {
      if (words.size() < 3 || words[0] != piece.call || words[1] != piece.group) continue;
      rest += std::string(", ") + piece.name;
      for (const std::size_t i : piece.words) rest += " " + words.at(i);
    }
  }
  return key + volume + rest;
}

}  // namespace

Wire FlowRecord() {
  Wire wire;
  wire.Ip("10.0.0.1").Ip("10.0.0.2").U16(51000).U16(80).U8(6).U32(3).U32(7).U32(10).U32(1000);
  return wire;
}

Wire Numbers(std::initializer_list<std::uint32_t> numbers) {
  Wire wire;
  for (const std::uint32_t number : numbers) wire.U32(number);
  return wire;
}

std::string HexText(const Bytes& bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : bytes) text += {kDigits[byte >> 4], kDigits[byte & 15]};
  return text;
}

Texts Digest(const Texts& lines) {
  Texts digest;
  std::vector<Texts> record;
  const auto end_record = [&] {
    if (!record.empty()) digest.push_back(FlowText(record));
    record.clear();
  };
  for (const std::string& line : lines) {
    std::istringstream in(line);
    const Texts words{std::istream_iterator<std::string>(in), {}};
    const bool is_volume =
        words[0] == "UpdateCounterKeyLen" && words[1] == "COUNTERID_FLOWGEN" && words[4] == "1";
    if (is_volume || words[0] == "MarkRecord" || words[0] == "Log" || line.starts_with("SetKey")) {
      end_record();
    }
    if (is_volume) {
      digest.push_back("volume " + words[5] + " of " + words[3]);
    } else if (words[0] == "Log" || line.starts_with("SetKey")) {
      digest.push_back(line);
    } else if (words[0] == "MarkRecord" || !record.empty()) {
      record.push_back(words);
    }
  }
  end_record();
  return digest;
}

Texts TemplatesOf(const CPINetflowMeter& meter) {
  char* text = nullptr;
  std::size_t size = 0;
  FILE* const file = open_memstream(&text, &size);
  meter.DebugDumpTemplates(file);
  std::fclose(file);
  std::istringstream dump(text);
  std::free(text);
  Texts exporters;
  for (std::string line; std::getline(dump, line);) {
    char address[16];
    unsigned int a = 0;
    unsigned int b = 0;
    if (std::sscanf(line.c_str(), "---- Templates for Router %15s Port %u", address, &a) == 2) {
      exporters.push_back(std::string(address) + ":" + std::to_string(a));
    } else if (std::sscanf(line.c_str(), "  ---- Template ID %u", &a) == 1) {
      exporters.back() += " " + std::to_string(a) + "()";
    } else if (std::sscanf(line.c_str(), " %*u %u %u", &a, &b) == 2) {
      std::string& list = exporters.back();
      list.pop_back();
      if (list.back() != '(') list += ' ';
      list += std::to_string(a) + ":" + std::to_string(b) + ")";
    }
  }
  return exporters;
}

void MeterTest::Start(std::string_view settings, std::string_view beside) {
  host_.Policy(std::string(settings) + std::string(kFlowsOnly), beside);
  ASSERT_EQ(host_.Attach(meter_), kStatusOk);
  host_.Forget();
}

}  // namespace flow::test
