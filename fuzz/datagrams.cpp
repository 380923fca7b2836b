// SPDX-License-Identifier: Apache-2.0
#include "fuzz/datagrams.h"

#include <algorithm>

#include "util/bytes.h"

namespace flow::fuzz {

Input Parse(const std::uint8_t* data, std::size_t size) {
  Input input;
  if (size == 0) return input;
  input.policy = data[0];
  ByteCursor cursor({data + 1, size - 1});
  std::span<const std::uint8_t> exporter;
  std::span<const std::uint8_t> payload;
  std::uint16_t length = 0;
  while (cursor.Take(1, &exporter) && cursor.TakeBe16(&length)) {
    if (!cursor.Take(std::min<std::size_t>(length, cursor.Remaining()), &payload)) break;
    input.datagrams.push_back({exporter[0], {payload.begin(), payload.end()}});
  }
  return input;
}

test::Bytes Serialize(const Input& input) {
  test::Wire out;
  out.U8(input.policy);
  for (const Datagram& datagram : input.datagrams) {
    const std::size_t size = std::min<std::size_t>(datagram.payload.size(), 65535);
    out.U8(datagram.exporter).U16(static_cast<std::uint16_t>(size));
    out.Raw(std::span(datagram.payload).first(size));
  }
  return out.Get();
}

test::Exporter ExporterOf(std::uint8_t number) {
  return {.address = 0xC0000200U + (number & 1U),
          .port = static_cast<std::uint16_t>(50000 + (number >> 1 & 1))};
}

test::Bytes HeadersOf(const Datagram& datagram) {
  test::Bytes headers = test::UdpHeaders(ExporterOf(datagram.exporter), datagram.payload.size());
  if ((datagram.exporter & 0x40) != 0) headers[0] = 0x4F;
  if ((datagram.exporter & 0x20) != 0) headers.resize(20);
  return headers;
}

}  // namespace flow::fuzz
