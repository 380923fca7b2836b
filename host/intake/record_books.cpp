// SPDX-License-Identifier: Apache-2.0
#include "host/intake/record_books.h"

#include <algorithm>
#include <iterator>
#include <numeric>

namespace flow::host {
namespace {

struct ReasonName {
  std::string_view id;
  std::string_view text;
};
constexpr ReasonName kNames[] = {
    {"duplicate_egress", "duplicates at the egress"},
    {"zero_bytes", "without bytes"},
    {"no_addresses", "without addresses (options data)"},
    {"filtered", "filtered"},
    {"corrupt", "corrupt"},
    {"ipv6_samples", "IPv6 samples"},
    {"undecoded_samples", "samples of other headers"},
    {"fragments", "samples of fragments"},
    {"variable_length", "with fields of variable length"},
    {"broken_set", "in broken sets or samples"},
    {"beyond_count", "beyond the header's count"},
    {"unexplained", "for no reason that was told (is CountLeftOut off?)"},
};
static_assert(std::size(kNames) == kLeftOuts);

constexpr std::size_t At(LeftOut reason) { return static_cast<std::size_t>(reason); }
constexpr std::size_t At(MeterWord word) { return static_cast<std::size_t>(word); }

// The reasons that a meter tells stand first, in the order of its words.
constexpr std::size_t kToldReasons = At(MeterWord::kReverse);
static_assert(At(LeftOut::kFragment) + 1 == kToldReasons);

// How many of the records that are left belong to a reason.
std::uint64_t Take(std::uint64_t most, std::uint64_t* rest) {
  const std::uint64_t taken = std::min(most, *rest);
  *rest -= taken;
  return taken;
}

}  // namespace

std::string_view LeftOutText(LeftOut reason) { return kNames[At(reason)].text; }
std::string_view LeftOutId(LeftOut reason) { return kNames[At(reason)].id; }

void RecordBooks::Enter(const Described& datagram, bool is_sflow, std::uint64_t marked,
                        const MeterWords& words) {
  std::uint64_t told = 0;
  for (std::size_t i = 0; i < kToldReasons; ++i) {
    left_out[i] += words[i];
    told += words[i];
  }
  // A sample is marked before it is looked at; a record once nothing but a filter can stop it.
  const std::uint64_t stopped_later =
      is_sflow ? told + words[At(MeterWord::kNoFlowSample)] : words[At(MeterWord::kFiltered)];
  const std::uint64_t metered_here = marked - std::min(stopped_later, marked);
  const std::uint64_t reverse_here = words[At(MeterWord::kReverse)];
  metered += metered_here;
  reverse += reverse_here;
  broken_sets += datagram.broken_sets;

  // A meter sees more than the host where the template stands in its policy, or a record's length
  // in no header.
  const std::uint64_t seen = metered_here + told;
  const std::uint64_t described_here = std::max(datagram.records + reverse_here, seen);
  described += described_here - reverse_here;
  std::uint64_t rest = described_here - seen;
  left_out[At(LeftOut::kBrokenSet)] += Take(datagram.in_broken_sets, &rest);
  left_out[At(LeftOut::kBeyondCount)] += Take(datagram.beyond_count, &rest);
  left_out[At(datagram.has_variable ? LeftOut::kVariableLength : LeftOut::kUnexplained)] += rest;
}

void RecordBooks::Add(const RecordBooks& other) {
  described += other.described;
  reverse += other.reverse;
  metered += other.metered;
  broken_sets += other.broken_sets;
  for (std::size_t i = 0; i < kLeftOuts; ++i) left_out[i] += other.left_out[i];
}

std::uint64_t RecordBooks::LeftOutSum() const {
  return std::accumulate(left_out.begin(), left_out.end(), std::uint64_t{0});
}

}  // namespace flow::host
