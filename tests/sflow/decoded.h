// SPDX-License-Identifier: Apache-2.0
// Decoding in tests: what the decoder delivered, as text.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "sflow/sf_sample.h"
#include "tests/support/wire.h"

namespace flow::test {

// One sample as the callback saw it: the fields that are not zero, as "srcPort=80 dstPort=51000".
struct DecodedSample {
  std::uint32_t type;
  std::string fixed;   // what every sample and every sampled header has: rate, ports, sizes
  std::string fields;  // what its elements gave

  friend bool operator==(const DecodedSample&, const DecodedSample&) = default;
};

struct Decoded {
  std::vector<DecodedSample> samples;
  SFExit exit;
  std::uint32_t decode_ok;
  std::string diagnostics;  // standard error

  // Fields of the last sample; a text that says so when there is none.
  std::string LastFields() const { return samples.empty() ? "no sample" : samples.back().fields; }
};

// Decode runs the decoder over a copy of the datagram in a heap block of exactly its size.
Decoded Decode(std::span<const std::uint8_t> datagram);

}  // namespace flow::test
