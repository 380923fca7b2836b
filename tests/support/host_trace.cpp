// SPDX-License-Identifier: Apache-2.0
#include "tests/support/host_trace.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "flowhandlers/identifiers.h"
#include "tests/support/counter_groups.h"

namespace flow::test {
namespace {

struct NamedGuid {
  const GUID* guid;
  std::string_view name;
};

constexpr GUID kNetflowProtocol = MakeGuid("CEF0774D-F1F3-40A6-8987-168BD69D9901");
constexpr GUID kSFlowProtocol = MakeGuid("462919DD-EE84-497C-AC6F-05D1162BCC5B");
constexpr GUID kNull{};

constexpr NamedGuid kNames[] = {
    {&kNull, "NULLGUID"},
    {&kNetflowProtocol, "PROTID_NETFLOW"},
    {&kSFlowProtocol, "PROTID_SFLOW"},
    {&UPID_IP, "UPID_IP"},
    {&UPID_UDP, "UPID_UDP"},
    {&CHANNELID_NETFLOW_TEMPLATES, "CHANNELID_NETFLOW_TEMPLATES"},
    {&CLSID_PI_NETFLOWMETER, "CLSID_PI_NETFLOWMETER"},
    {&CLSID_PI_NETFLOW, "CLSID_PI_NETFLOW"},
    {&CLSID_PI_NETFLOWGEN, "CLSID_PI_NETFLOWGEN"},
    {&CLSID_PI_NETFLOWINTF, "CLSID_PI_NETFLOWINTF"},
    {&CLSID_PI_SFLOWMETER, "CLSID_PI_SFLOWMETER"},
    {&CLSID_PI_SFLOW, "CLSID_PI_SFLOW"},
};

bool IsPrintable(unsigned char c) { return c >= 0x20 && c <= 0x7e; }

}  // namespace

std::string GuidName(const GUID& guid) {
  if (const CounterGroup* const group = FindCounterGroup(guid)) return std::string(group->name);
  for (const NamedGuid& named : kNames) {
    if (*named.guid == guid) return std::string(named.name);
  }
  char text[40];
  const std::uint8_t* const d = guid.Data4;
  std::snprintf(text, sizeof text, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", guid.Data1,
                unsigned{guid.Data2}, unsigned{guid.Data3}, d[0], d[1], d[2], d[3], d[4], d[5],
                d[6], d[7]);
  return text;
}

std::string Escaped(std::string_view text) {
  std::string out;
  for (const char c : text) {
    switch (c) {
      case '\\':
        out += "\\\\";
        break;
      case '\t':
        out += "\\t";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      default:
        if (IsPrintable(static_cast<unsigned char>(c))) {
          out += c;
        } else {
          char hex[5];
          std::snprintf(hex, sizeof hex, "\\x%02x", static_cast<unsigned char>(c));
          out += hex;
        }
    }
  }
  return out;
}

void HostTrace::Fault(const std::string& text) {
  if (!keep_faults_) {
    std::fprintf(stderr, "The library broke a promise: %s\nCalls before:\n", text.c_str());
    const std::size_t first = lines_.size() > 20 ? lines_.size() - 20 : 0;
    for (std::size_t i = first; i < lines_.size(); ++i) {
      std::fprintf(stderr, "  %s\n", lines_[i].c_str());
    }
    std::abort();
  }
  faults_.push_back(text);
}

bool HostTrace::Failure(std::string_view operation, Status* status) const {
  if (failures_.empty()) return false;
  const auto found = failures_.find(operation);
  if (found == failures_.end()) return false;
  *status = found->second;
  return true;
}

void HostTrace::AppendField(std::string& line, Text text) {
  if (text.text == nullptr) {
    line += "null";
  } else {
    AppendField(line, Key{text.text});
  }
}

void HostTrace::AppendField(std::string& line, Key key) {
  line += key.key.empty() ? "\"\"" : Escaped(key.key);
}

void HostTrace::AppendField(std::string& line, Hash hash) {
  char text[11];
  std::snprintf(text, sizeof text, "0x%08x", hash.value);
  line += text;
}

void HostTrace::AppendField(std::string& line, Address address) {
  const std::uint32_t a = address.host_order;
  char text[16];
  std::snprintf(text, sizeof text, "%u.%u.%u.%u", a >> 24, a >> 16 & 255, a >> 8 & 255, a & 255);
  line += text;
}

void HostTrace::AppendField(std::string& line, Hex hex) {
  static constexpr char kDigits[] = "0123456789abcdef";
  if (hex.bytes.empty()) line += "\"\"";
  for (const std::uint8_t byte : hex.bytes) {
    line += kDigits[byte >> 4];
    line += kDigits[byte & 15];
  }
}

}  // namespace flow::test
