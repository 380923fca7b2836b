// SPDX-License-Identifier: Apache-2.0
#include "fuzz/netflow_grammar.h"

namespace flow::fuzz {

Datagram MakeDatagram(Random& random) {
  return {static_cast<std::uint8_t>(random.Below(4)), MakeNetflow(random)};
}

}  // namespace flow::fuzz
