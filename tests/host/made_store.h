// SPDX-License-Identifier: Apache-2.0
// A store of made traffic whose truth is known: every flow is a function of its number, so a test
// adds up by ForEachFlow what an answer should be.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "host/base/endpoint.h"
#include "host/engine/group_info.h"

namespace flow::host {

struct MadeFlow {
  std::int64_t bucket;    // the minute that it was counted in, seconds since 1970
  std::int64_t first_ms;  // since 1970
  std::int64_t last_ms;
  int source;       // at home: a number below MadeStore::hosts; its address is MadeHost(source)
  int destination;  // outside: MadeHost(destination)
  std::uint16_t source_port;
  std::uint16_t destination_port;
  std::uint8_t protocol;
  std::uint64_t bytes;  // source to destination
  std::uint64_t packets;
  std::uint64_t bytes_back;
  std::uint64_t packets_back;
  int exporter;  // MadeExporter(exporter)
  std::uint32_t in_interface;
  std::uint32_t out_interface;
  std::uint32_t source_as;
  std::uint32_t destination_as;
};

struct MadeStore {
  std::int64_t start = 1'795'564'800;  // 2026-11-25 00:00:00 UTC; a full hour
  int hours = 2;
  int hosts = 100;  // at home, and as many outside
  int flows_per_minute = 200;
  // The collector did not run in these minutes, counted from the start; none when they are equal.
  int gap_from = 17;
  int gap_to = 20;
  std::size_t kept_keys = 0;  // of each group and bucket; 0 for the tiers' own numbers
};

// Hosts at home are 10.0.0.0/8, outside 198.18.0.0/15; every 16th has an IPv6 address.
IpAddress MadeHost(const MadeStore& made, int number);
inline constexpr int kMadeExporters = 4;
// 192.0.2.1 to 192.0.2.4. The last one sends nothing in the last quarter of the time.
IpAddress MadeExporter(int number);

// The first exporter's export loses kMadeLost flows in the minute kMadeLossMinute.
inline constexpr int kMadeLossMinute = 7;
inline constexpr std::uint64_t kMadeLost = 1980;

// The first flow of every minute is a part of one that lasts all the time; others have lower ports.
inline constexpr std::uint16_t kMadeLongPort = 61'000;

// The groups that it has: totals, hosts, hosts6, flowintfs, applications, protocols, as_numbers.
std::vector<GroupInfo> MadeGroups();

// Whether the collector did not run in a minute, counted from the start.
bool IsGap(const MadeStore& made, int minute);

// In the order in which they are stored.
void FlowsOfMinute(const MadeStore& made, int minute,
                   const std::function<void(const MadeFlow&)>& visit);
void ForEachFlow(const MadeStore& made, const std::function<void(const MadeFlow&)>& visit);

// WriteMadeStore makes the directory and all its databases.
void WriteMadeStore(const MadeStore& made, const std::string& directory);

}  // namespace flow::host
