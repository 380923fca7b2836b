#include "fuzz/grammar.h"
#include "tests/support/sflow_builder.h"

namespace flow::fuzz {

Datagram MakeDatagram(Random& random) {
  static const auto elements = test::EveryFlowElement();
  static const auto blocks = test::EveryCounterBlock();
  static const auto datagrams = test::SFlowDatagrams();
  const auto exporter = static_cast<std::uint8_t>(random.Below(4));
  if (random.OneIn(2)) {
    return {exporter, datagrams[random.Below(datagrams.size())].bytes};
  }
  test::SFlowPacket packet;
  for (std::uint32_t left = 1 + random.Below(4); left > 0; --left) {
    const bool expanded = random.OneIn(2);
    if (random.OneIn(4)) {
      test::SFlowCounters counters{.expanded = expanded};
      for (std::uint32_t n = random.Below(3); n > 0; --n) {
        counters.elements.push_back(blocks[random.Below(blocks.size())]);
      }
      packet.Counters(counters);
      continue;
    }
    test::SFlowFlow flow{.expanded = expanded, .rate = random.OneIn(2) ? 1 : random()};
    for (std::uint32_t n = random.Below(4); n > 0; --n) {
      flow.elements.push_back(elements[random.Below(elements.size())]);
    }
    packet.Flow(flow);
  }
  return {exporter, packet.Build()};
}

}  // namespace flow::fuzz
