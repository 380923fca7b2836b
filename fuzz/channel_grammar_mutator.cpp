// SPDX-License-Identifier: Apache-2.0
#include "fuzz/netflow_grammar.h"

namespace flow::fuzz {

Datagram MakeDatagram(Random& random) {
  const auto exporter = static_cast<std::uint8_t>(random.Below(4));
  if (random.OneIn(2)) return {exporter, MakeNetflow(random)};
  // The first 24 bytes of the packet that carried the set, then the set.
  test::Bytes message = test::UdpHeaders(ExporterOf(exporter), 0);
  message.resize(24);
  const test::Bytes set = MakeTemplateSet(random);
  message.insert(message.end(), set.begin(), set.end());
  return {static_cast<std::uint8_t>(exporter | 0x80), message};
}

}  // namespace flow::fuzz
