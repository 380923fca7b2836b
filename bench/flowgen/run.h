// SPDX-License-Identifier: Apache-2.0
// A run: all exporters in turn, until the records are made.
#pragma once

#include <cstdint>

#include "bench/flowgen/options.h"
#include "bench/flowgen/output.h"

namespace flow::gen {

struct Totals {
  std::uint64_t datagrams = 0;
  std::uint64_t datagram_bytes = 0;
  std::uint64_t records = 0;
  std::uint64_t bytes = 0;
  std::uint64_t packets = 0;

  void Add(const Datagram& datagram);
};

struct Result {
  Totals put;       // what the output was given
  Totals left_out;  // counted by sequence numbers alone
};

// Start is the time of the first datagram, in microseconds since 1970.
Result Run(const Options& options, std::uint64_t start_us, Output* output);

}  // namespace flow::gen
