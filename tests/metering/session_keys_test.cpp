// SPDX-License-Identifier: Apache-2.0
// The keys of flows, as the host sees them.

#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <string>
#include <utility>

#include "tests/metering/metered_record.h"
#include "util/bytes.h"

namespace flow::test {
namespace {

// The key of a record with its direction, from the host call that shows both.
std::string KeyOf(MeteredRecord& record) {
  const auto calls = record.Meter("UpdateFlowVolume ");
  EXPECT_EQ(calls.size(), 1U);
  const std::string line = calls.front().substr(sizeof("UpdateFlowVolume"));
  return line.substr(0, line.find(' ')) +
         (line.ends_with(" 1000 0 10 0") ? " forward" : " reverse");
}

bool Serves(const NetflowPolicy& policy, unsigned port) {
  return (port == 80 && policy.fMergeHTTP) || (port == 443 && policy.fMergeHTTPS) ||
         (port == 53 && policy.fMergeDNS);
}

// The same as an integrator's manual describes it, put together with snprintf.
std::string PlainKey(const MeteredRecord& record) {
  struct Side {
    std::string host;
    unsigned port;
    std::uint32_t ifindex;
  };
  const bool is_ipv6 = record.rec.ip_version == 6;
  const auto side = [&](std::uint32_t host, const std::uint8_t* host6, unsigned port,
                        std::uint32_t ifindex) {
    std::string text;
    for (int i = 0; i < (is_ipv6 ? 16 : 4); ++i) {
      char byte[4];
      std::snprintf(byte, sizeof(byte), "%02X.", is_ipv6 ? host6[i] : host >> (24 - 8 * i) & 0xFF);
      text.append(byte, is_ipv6 || i == 3 ? 2 : 3);
    }
    return Side{text, port, ifindex};
  };
  const FlowRecord& rec = record.rec;
  Side a = side(rec.src_addr, rec.src_addr6, rec.src_port, rec.in_ifindex);
  Side b = side(rec.dst_addr, rec.dst_addr6, rec.dst_port, rec.out_ifindex);
  const NetflowPolicy& policy = record.policy;
  if (Serves(policy, a.port)) {
    b.port = 65535;
  } else if (Serves(policy, b.port)) {
    a.port = 65535;
  }
  const bool forward = a.port > b.port || (a.port == b.port && a.host < b.host);
  const bool swap = policy.fMatchBiDirectionalFlows && !forward;
  if (swap) std::swap(a, b);
  char exporter[40];
  std::snprintf(exporter, sizeof(exporter), "C0.00.02.01_%08X_%08X", a.ifindex, b.ifindex);
  char key[160];
  std::snprintf(key, sizeof(key), "%02X%c:%s:p-%04X_%s:p-%04X_%s %s", record.rec.protocol,
                is_ipv6 ? 'D' : 'C', a.host.c_str(), a.port, b.host.c_str(), b.port,
                policy.fMergeMultipleSources ? "00.00.00.00_00000000_00000000" : exporter,
                swap ? "reverse" : "forward");
  return key;
}

// Few different ports and hosts, so that equal ones and services meet often.
TEST(SessionKeys, AreThePlainOnesOnRandomFlows) {
  std::mt19937 random(8);
  const auto below = [&](unsigned limit) { return static_cast<unsigned>(random()) % limit; };
  const auto host = [&](std::uint8_t* bytes, unsigned size) {
    if (below(4) != 0) bytes[below(size)] = static_cast<std::uint8_t>(below(4) * 85);
    if (below(4) != 0) bytes[below(4)] = static_cast<std::uint8_t>(below(256));
  };
  const auto port = [&] {
    const std::uint16_t ports[] = {0, 1, 53, 80, 443, 51000, 65534, 65535};
    return ports[below(8)];
  };
  MeteredRecord record;
  for (int i = 0; i < 20'000; ++i) {
    record.Set({.hosts = {0U, 0U}, .interfaces = {below(3), ~below(3)}});
    for (std::uint32_t* const address : {&record.rec.src_addr, &record.rec.dst_addr}) {
      std::uint8_t bytes[4] = {};
      host(bytes, 4);
      *address = LoadBe32(bytes);
    }
    host(record.rec.src_addr6, 16);
    host(record.rec.dst_addr6, 16);
    record.rec.ip_version = below(2) == 0 ? 4 : 6;
    record.rec.protocol = static_cast<std::uint8_t>(below(256));
    record.rec.src_port = port();
    record.rec.dst_port = port();
    for (bool NetflowPolicy::*rule :
         {&NetflowPolicy::fMergeHTTP, &NetflowPolicy::fMergeHTTPS, &NetflowPolicy::fMergeDNS,
          &NetflowPolicy::fMergeMultipleSources, &NetflowPolicy::fMatchBiDirectionalFlows}) {
      record.policy.*rule = below(2) == 0;
    }
    ASSERT_EQ(KeyOf(record), PlainKey(record));
  }
}

// Whole texts, so that the above is not wrong in the same way twice.
TEST(SessionKeys, AreTheSameForBothHalves) {
  const auto both_halves = [](const Given& one) {
    Given other = one;
    std::swap(other.hosts.first, other.hosts.second);
    std::swap(other.hosts6.first, other.hosts6.second);
    std::swap(other.ports.first, other.ports.second);
    std::swap(other.interfaces.first, other.interfaces.second);
    MeteredRecord record(one);
    const std::string key = KeyOf(record);
    record.Set(other);
    return key + ", " + KeyOf(record);
  };
  std::string key = "06C:0A.01.02.03:p-C738_C0.A8.01.4D:p-0050_C0.00.02.01_00000003_00000007";
  EXPECT_EQ(both_halves({.on = "MatchBiDirectionalFlows"}), key + " forward, " + key + " reverse");
  key = "06C:0A.01.02.03:p-0007_C0.A8.01.4D:p-0007_C0.00.02.01_00000003_00000007";
  EXPECT_EQ(both_halves({.on = "MatchBiDirectionalFlows", .ports = {7, 7}}),
            key + " forward, " + key + " reverse");
  key =
      "11D:20010DB8000000000000000000000002:p-FFFF_20010DB8000000000000000000000001:p-0035_"
      "00.00.00.00_00000000_00000000";
  EXPECT_EQ(both_halves({.on = "MatchBiDirectionalFlows MergeMultipleSources MergeDNS",
                         .ports = {53, 40000},
                         .protocol = 17,
                         .hosts6 = {"2001:db8::1", "2001:db8::2"}}),
            key + " reverse, " + key + " forward");
}

}  // namespace
}  // namespace flow::test
