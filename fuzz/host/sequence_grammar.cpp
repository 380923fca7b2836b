// SPDX-License-Identifier: Apache-2.0
#include "fuzz/host/sequence_grammar.h"

#include <iterator>

#include "fuzz/host/sequence.h"
#include "fuzz/netflow_grammar.h"
#include "tests/support/sflow_builder.h"

namespace flow::fuzz {
namespace {

Datagram StepOf(Step step, test::Bytes payload = {}) {
  return {static_cast<std::uint8_t>(kStep | static_cast<std::uint8_t>(step)), std::move(payload)};
}

// The domain if there is one, the first 24 bytes of the packet that carried the set, the set.
Datagram MakeMessage(Random& random) {
  const bool has_domain = random.OneIn(2);
  test::Bytes message = test::UdpHeaders(ExporterOf(static_cast<std::uint8_t>(random.Below(4))), 0);
  message.resize(24);
  if (has_domain) {
    const auto domain = static_cast<std::uint8_t>(random.Below(2));
    message.insert(message.begin(), {0, 0, 0, domain});
  }
  const test::Bytes set = MakeTemplateSet(random);
  message.insert(message.end(), set.begin(), set.end());
  return StepOf(has_domain ? Step::kDomainMessage : Step::kMessage, std::move(message));
}

Datagram MakeClock(Random& random) {
  constexpr std::uint32_t kSeconds[] = {1,    59,     60,      3600,       86'400,
                                        3599, 86'401, 604'800, 31'536'000, 2'000'000'000};
  std::uint32_t seconds = kSeconds[random.Below(std::size(kSeconds))];
  if (random.OneIn(2)) seconds = ~seconds + 1;
  return StepOf(Step::kClock, test::Wire().U32(seconds).Get());
}

}  // namespace

Datagram MakeEntry(Random& random) {
  static const auto samples = test::SFlowDatagrams();
  const auto exporter = static_cast<std::uint8_t>(random.Below(8));
  switch (random.Below(16)) {
    case 0:
      return MakeMessage(random);
    case 1:
      return MakeClock(random);
    case 2:
      return StepOf(Step::kReload, {static_cast<std::uint8_t>(random())});
    case 3:
    case 4:
      return StepOf(Step::kHarvest);
    case 5:
    case 6:
      return StepOf(Step::kReplaceMeters);
    case 7:
      return {static_cast<std::uint8_t>(exporter | kToSFlow),
              samples[random.Below(samples.size())].bytes};
    default:
      return {exporter, MakeNetflow(random)};
  }
}

}  // namespace flow::fuzz
