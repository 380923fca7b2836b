// SPDX-License-Identifier: Apache-2.0
// Workloads: traffic of one kind as an exporter sends it, and what the meter must make of it.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace flow::bench {

enum class MeterKind { kNetflow, kSFlow };

// A UDP datagram: IPv4 and UDP header, payload.
struct Datagram {
  std::array<std::uint8_t, 28> headers;
  std::vector<std::uint8_t> payload;
};
Datagram MakeDatagram(std::uint32_t exporter, std::vector<std::uint8_t> payload);

struct Workload {
  std::string_view name;
  MeterKind meter;
  std::string_view settings;         // what the traffic needs beside the policy
  std::vector<Datagram> templates;   // sent once, before everything else
  std::vector<Datagram> datagrams;   // sent again and again
  std::uint64_t items = 0;           // records in `datagrams`; datagrams, when those are malformed
  std::uint64_t metered = 0;         // records that the meter marks
  std::uint64_t metered_bytes = 0;   // their sum in the host's total
  std::uint64_t datagram_bytes = 0;  // sum of the payloads
};

// Policies by name. "default" is an empty policy file; "everything" has every switch on that adds
// work, home AS numbers and filters. Beside these there is "exact", with the switches on that mend
// numbers, but for KeepEgressRecords, which saves work and lets more be metered.
inline constexpr std::string_view kPolicies[] = {"default", "everything"};
std::string PolicySettings(std::string_view policy);

// The names of all workloads, and one by its name.
std::vector<std::string_view> WorkloadNames();
Workload MakeWorkload(std::string_view name);

}  // namespace flow::bench
