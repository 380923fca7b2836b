// SPDX-License-Identifier: Apache-2.0
// What a counter group is: its meters, what its keys mean, and how a long run keeps it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "flowhandlers/guid.h"

namespace flow::host {

// What the key texts of a group are.
enum class KeyKind : std::uint8_t {
  kGuess,        // whatever the form of the key says; for groups of plug-ins
  kText,         // readable as it is
  kTotals,       // TOTALBW and the four directions
  kIpv4,         // C0.A8.01.0A
  kIpv6,         // 32 hex digits
  kInterface,    // C0.A8.01.01_0000000A
  kSession,      // a flow
  kApplication,  // p-0050, or a name
  kProtocol,     // 06
  kEthertype,    // 86DD
  kSubnet,       // C0.A8.01.00/18, or a name
  kAsNumber,     // decimal, negative from 2147483648 on
  kAsInterface,  // AS number, backslash, interface
  kVlan,         // 000A
  kMacPair,      // two MAC addresses with " ->" between them
};

// What a group's key says of the record that it is counted for.
enum class RecordWord : std::uint8_t {
  kNone,
  kAsNumber,
  kAsInterface,
  kIpNextHop,
  kBgpNextHop,
  kVrf,
  kApplication,
  kUser,
  kMac,
  kFlow,
};

enum class Unit : std::uint8_t { kBytes, kPackets, kCount };

struct MeterInfo {
  int index = 0;
  std::string id;     // in files: bytes_in
  std::string title;  // on the terminal: In
  Unit unit = Unit::kBytes;
};

struct GroupInfo {
  GUID guid{};
  std::string id;         // in files and on the command line: hosts
  std::string title;      // on the terminal: Hosts
  std::string key_title;  // heading of the keys: Host
  KeyKind key_kind = KeyKind::kText;
  bool from_plugin = false;
  RecordWord word = RecordWord::kNone;
  std::vector<MeterInfo> meters;
  std::vector<int> ranking;  // keys are ranked by the sum of these meters

  // How a long run keeps the group: the length of its time buckets, how many keys of a bucket are
  // kept, and the numbers of keys at which pruning starts and stops.
  std::uint32_t bucket_ms = 60'000;
  std::size_t top_n = 50;
  std::size_t track_high = 200'000;
  std::size_t track_low = 100'000;

  // Columns is how many values a key has: indices of meters are below it.
  [[nodiscard]] std::size_t Columns() const;
};

// The flow group; it is the one whose keys are sessions.
inline constexpr GUID kFlowGroup = MakeGuid("99A78737-4B41-4387-8F31-8077DB917336");
// Exporters, where sampling rates are published as a property.
inline constexpr GUID kExporterGroup = MakeGuid("2314BB8E-2BCC-4B86-8AA2-677E5554C0FE");

// UnknownGroup describes a group that nobody described: every key as it is, meters by number.
GroupInfo UnknownGroup(const GUID& guid);

}  // namespace flow::host
