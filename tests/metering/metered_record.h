// SPDX-License-Identifier: Apache-2.0
// One decoded record with its policy and surroundings, and the host calls that it causes.
//
//   MeteredRecord({.on = "MeterASN", .as = {65001, 65002}, .home = "10.0.0.0/8"}).Meter()
#pragma once

#include <arpa/inet.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "metering/record_metering.h"
#include "tests/config/policy_switches.h"
#include "tests/support/recording_host.h"
#include "tests/support/wire.h"

namespace flow::test {

template <class T>
using SourceAndDestination = std::pair<T, T>;

// At the start a NetFlow v5 record of a TCP flow, under a policy with every switch off.
struct Given {
  const char* on = "";  // switches of the policy, separated by blanks
  SourceAndDestination<Ip4> hosts = {"10.1.2.3", "192.168.1.77"};
  SourceAndDestination<std::uint16_t> ports = {51000, 80};
  std::uint8_t protocol = 6;
  std::uint8_t tcp_flags = 0x10;
  std::uint32_t packets = 10;
  std::uint32_t bytes = 1000;
  std::uint32_t uptime = 100'000;  // of the exporter, at 1700000000
  std::uint32_t first = 80'000;
  std::uint32_t last = 84'000;
  std::uint32_t sampling = 1;
  int l2_bytes = 0;  // added to a packet
  SourceAndDestination<std::uint32_t> interfaces = {3, 7};
  SourceAndDestination<std::uint32_t> as = {0, 0};
  SourceAndDestination<std::uint8_t> masks = {0, 0};
  std::uint8_t ip_version = 4;
  SourceAndDestination<const char*> hosts6 = {nullptr, nullptr};  // makes an IPv6 record
  Ip4 ip_nexthop = 0U;
  Ip4 bgp_nexthop = 0U;
  SourceAndDestination<std::uint8_t> macs = {0, 0};  // first byte of the one, last of the other
  const char* vrf = "";
  const char* application = "";
  const char* text64 = "";
  const char* text32 = "";
  std::uint16_t version = 5;
  std::uint32_t first_switched = 0;
  const char* home = nullptr;       // "10.0.0.0/8": a network that the meter takes for home
  const char* host_home = nullptr;  // one that the host itself takes for home
  std::vector<std::uint32_t> home_as = {};
};

class MeteredRecord {
 public:
  explicit MeteredRecord(const Given& given = {}) {
    origin.exporter = Ip4("192.0.2.1").value;
    Set(given);
  }

  // Set replaces the record. Switches and home networks are added to those before.
  void Set(const Given& given) {
    SwitchOn(given.on);
    policy.AddL2AccountingBytes = given.l2_bytes;
    policy.fHomeASNumbers |= !given.home_as.empty();
    for (const std::uint32_t number : given.home_as) policy.HomeASSet.Insert(number);
    if (given.home != nullptr) home.Fetch(RecordingHost().Home(given.home).Site());
    if (given.host_home != nullptr) host.Home(given.host_home);
    context.CurrentExportVersion = given.version;
    context.FirstSwitchedSeen = given.first_switched;
    context.VrfTagText.Assign(given.vrf);
    context.AppTagText.Assign(given.application);
    rec = {};
    std::tie(rec.src_addr, rec.dst_addr) =
        std::pair(given.hosts.first.value, given.hosts.second.value);
    rec.packets = given.packets;
    rec.bytes = given.bytes;
    rec.first = given.first;
    rec.last = given.last;
    std::tie(rec.src_port, rec.dst_port) = given.ports;
    rec.tcp_flags = given.tcp_flags;
    rec.protocol = given.protocol;
    std::tie(rec.in_ifindex, rec.out_ifindex) = given.interfaces;
    rec.ip_version = given.ip_version;
    std::tie(rec.src_mask, rec.dst_mask) = given.masks;
    rec.ip_nexthop = given.ip_nexthop.value;
    rec.bgp_nexthop = given.bgp_nexthop.value;
    std::tie(rec.src_as, rec.dst_as) = given.as;
    std::tie(rec.src_mac[0], rec.dst_mac[5]) = given.macs;
    std::strcpy(rec.vendor_text64, given.text64);
    std::strcpy(rec.vendor_text32, given.text32);
    rec.has_extras = given.macs != std::pair<std::uint8_t, std::uint8_t>() ||
                     std::string(given.vrf) + given.text64 + given.text32 != "";
    if (given.hosts6.first != nullptr) {
      rec.ip_version = 6;
      rec.src_addr = rec.dst_addr = 0;
      inet_pton(AF_INET6, given.hosts6.first, rec.src_addr6);
      inet_pton(AF_INET6, given.hosts6.second, rec.dst_addr6);
    }
    origin.sampling_rate = given.sampling;
    origin.clock = ExportClock(given.uptime, 1'700'000'000, 0);
  }

  // Meter gives the calls of one more metering, or those that contain a text.
  std::vector<std::string> Meter(std::string_view text = {}) {
    metering.ProcRecord(host.Engine(), host.Site(), rec, origin);
    return host.Take(text);
  }

  RecordingHost host;
  NetflowPolicy policy;
  HomeNetworks home;
  RecordContext context;
  FlowRecord rec = {};
  RecordOrigin origin;  // the exporter 192.0.2.1
  RecordMetering metering{policy, home, context};

 private:
  void SwitchOn(const std::string& names) {
    std::istringstream words(names);
    for (std::string word; words >> word;) {
      bool known = false;
      for (const PolicySwitch& row : kPolicySwitches) {
        if (row.key == word) known = policy.*row.member = true;
      }
      if (!known) {
        std::fprintf(stderr, "no switch of the policy: %s\n", word.c_str());
        std::abort();
      }
    }
  }
};

}  // namespace flow::test
