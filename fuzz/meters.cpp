// SPDX-License-Identifier: Apache-2.0
#include "fuzz/meters.h"

#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string>

#include "plugin/policy_settings.h"
#include "tests/support/host_trace.h"

#if defined(__SANITIZE_ADDRESS__)
#define FLOW_HAS_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define FLOW_HAS_ASAN 1
#endif
#endif
#ifdef FLOW_HAS_ASAN
// Of the sanitizer's allocator; not every compiler brings the header.
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace flow::fuzz {
namespace {

// Every switch on, so that a new one is fuzzed as well, but for those that hide what others do: of
// two equal settings the first counts.
std::string EverythingOn() {
  std::string settings =
      "<MergeMultipleSources>false</MergeMultipleSources><MeterZeroFlows>false</MeterZeroFlows>"
      "<IgnoreAllEgress>false</IgnoreAllEgress><IgnoreOutCounts>false</IgnoreOutCounts>"
      "<HomeASNumbers>1,2</HomeASNumbers>";
  for (const PolicySetting& setting : kNetflowSettings) {
    if (setting.kind != SettingKind::kSwitch) continue;
    const std::string key(setting.key);
    settings += "<" + key + ">true</" + key + ">";
  }
  for (const PolicySetting& setting : kSFlowSettings) {
    if (setting.kind != SettingKind::kSwitch ||
        settings.find("<" + std::string(setting.key) + ">") != std::string::npos) {
      continue;
    }
    const std::string key(setting.key);
    settings += "<" + key + ">true</" + key + ">";
  }
  return settings;
}
constexpr char kBothPortsOff[] =
    "<MeterBothPorts>false</MeterBothPorts><MeterZeroFlows>true</MeterZeroFlows>"
    "<TagFlowsWithUserID>true</TagFlowsWithUserID><IgnoreAllEgress>true</IgnoreAllEgress>"
    "<UseRouterTimestamps>false</UseRouterTimestamps><MergeHTTP>false</MergeHTTP>"
    "<MergeHTTPS>false</MergeHTTPS><MergeDNS>false</MergeDNS>"
    "<MatchBiDirectionalFlows>false</MatchBiDirectionalFlows>"
    "<AllowVariableLengthStrings>true</AllowVariableLengthStrings>";
constexpr char kFiltered[] =
    "<FilterHostsExclude>10.0.0.1,10.0.0.2</FilterHostsExclude>"
    "<FilterInterfacesExclude>192.0.2.0_1,192.0.2.0_2</FilterInterfacesExclude>";
constexpr char kStaticTemplates[] =
    "<StaticTemplates><Template id=\"256\" name=\"s\"><Fields>8,12,4,7,11,1,2,32861</Fields>"
    "</Template><Template id=\"1\" name=\"one\"><Fields>8,12,1</Fields></Template>"
    "</StaticTemplates><SamplingRates><Rate router=\"0.0.0.0\" rate=\"100\"/></SamplingRates>";

struct Policy {
  std::string settings;
  const char* beside;
};
const Policy kPolicies[] = {{"", ""},
                            {EverythingOn(), ""},
                            {kBothPortsOff, kStaticTemplates},
                            {kFiltered, kStaticTemplates}};

// A key needs several bytes of a record; a record of no bytes is handled once a set, of at least
// four bytes. No record leads to more than about eighty calls.
constexpr std::uint64_t kCallsPerByte = 100;
constexpr std::uint64_t kCallsPerDatagram = 200;

// The smallest template record has four bytes and is kept in a tree node of its own.
constexpr std::size_t kBytesKeptPerByte = 64;
constexpr std::size_t kBytesKeptPerDatagram = 4096;

std::size_t MemoryInUse() {
#ifdef FLOW_HAS_ASAN
  return __sanitizer_get_current_allocated_bytes();
#else
  return 0;
#endif
}

[[noreturn]] void Broken(const char* promise, std::uint64_t value, std::size_t size) {
  std::fprintf(stderr, "%s: %llu for a datagram of %zu bytes\n", promise,
               static_cast<unsigned long long>(value), size);
  std::abort();
}

}  // namespace

test::RecordingHost& ChoosePolicy(std::uint8_t number) {
  static test::RecordingHost host;
  static int chosen = -1;
  const int wanted = number % static_cast<int>(std::size(kPolicies));
  if (chosen < 0) {
    host.Recording(false).Home("10.0.0.0/8").WorkDirectory(std::nullopt);
  }
  if (wanted != chosen) {
    host.Policy(kPolicies[wanted].settings, kPolicies[wanted].beside);
    host.AnyValue(wanted == 1);
    chosen = wanted;
  }
  return host;
}

StepWatch::StepWatch(const test::RecordingHost& host, std::size_t datagram_size)
    : host_(host), size_(datagram_size), calls_(host.Trace()->Calls()), memory_(MemoryInUse()) {}

StepWatch::~StepWatch() {
  const std::uint64_t calls = host_.Trace()->Calls() - calls_;
  if (calls > kCallsPerDatagram + kCallsPerByte * size_) Broken("calls", calls, size_);
  const std::size_t memory = MemoryInUse();
  if (memory > memory_ + kBytesKeptPerDatagram + kBytesKeptPerByte * size_) {
    Broken("bytes kept", memory - memory_, size_);
  }
}

}  // namespace flow::fuzz
