// SPDX-License-Identifier: Apache-2.0
// The books of an exporter's records: every record that its datagrams describe is metered, or left
// out for a reason.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

#include "host/engine/meter_words.h"
#include "host/export/export_format.h"

namespace flow::host {

// Why a record was not metered.
enum class LeftOut : std::uint8_t {
  kDuplicateEgress,
  kZeroBytes,
  kNoAddresses,
  kFiltered,
  kCorrupt,
  kIpv6Sample,
  kUndecodedSample,
  kFragment,
  kVariableLength,  // of a set with fields of variable length, which the policy has or has not on
  kBrokenSet,       // from where a set or a sample has a length that does not fit
  kBeyondCount,     // of a v9 set beyond the header's count
  kUnexplained,     // nobody said why; with CountLeftOut on, an error of the program
};
inline constexpr std::size_t kLeftOuts = 12;

// LeftOutText is the reason as it reads after a number; LeftOutId its name in files.
std::string_view LeftOutText(LeftOut reason);
std::string_view LeftOutId(LeftOut reason);

// What a datagram describes, as far as the host can tell.
struct Described {
  std::uint64_t records = 0;  // whose template is known, those of the two rows below included
  std::uint64_t in_broken_sets = 0;
  std::uint64_t beyond_count = 0;
  std::uint64_t unknown_sets = 0;  // data sets without a template
  std::uint64_t broken_sets = 0;   // sets of any kind with impossible lengths
  bool has_variable = false;       // sets with fields of variable length
  bool has_vast = false;           // sets whose records cannot be counted
};

struct RecordBooks {
  std::uint64_t described = 0;
  std::uint64_t reverse = 0;  // second directions of records: metered, and described by them
  std::uint64_t metered = 0;
  std::array<std::uint64_t, kLeftOuts> left_out{};
  std::uint64_t broken_sets = 0;

  // Enter takes a datagram: what it describes, the records that the meter marked, what it said.
  // described + reverse = metered + left out, for each datagram.
  void Enter(const Described& datagram, bool is_sflow, std::uint64_t marked,
             const MeterWords& words);
  void Add(const RecordBooks& other);

  [[nodiscard]] std::uint64_t LeftOutSum() const;
};

}  // namespace flow::host
