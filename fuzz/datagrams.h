// SPDX-License-Identifier: Apache-2.0
// An input of the datagram targets: a policy to choose, then datagrams with the exporter that sent
// each. Templates and sampling rates survive from one datagram to the next, as in a meter that
// runs.
//
//   policy (1 byte), then per datagram: exporter (1 byte), length (2 bytes), payload
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tests/support/packet.h"
#include "tests/support/wire.h"

namespace flow::fuzz {

struct Datagram {
  std::uint8_t exporter;
  test::Bytes payload;
};

struct Input {
  std::uint8_t policy = 0;
  std::vector<Datagram> datagrams;
};

// Parse reads an input; whatever it is, it is one. A length beyond the end takes what is left.
Input Parse(const std::uint8_t* data, std::size_t size);
test::Bytes Serialize(const Input& input);

// ExporterOf gives one of a few exporters that share addresses and ports.
test::Exporter ExporterOf(std::uint8_t number);

// HeadersOf makes what stands before the payload. Some hosts cut it: bit 5 of the exporter leaves
// out the UDP header, bit 6 claims more IPv4 options than there are bytes.
test::Bytes HeadersOf(const Datagram& datagram);

}  // namespace flow::fuzz
