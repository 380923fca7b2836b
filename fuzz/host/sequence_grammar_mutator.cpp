// SPDX-License-Identifier: Apache-2.0
#include "fuzz/host/sequence_grammar.h"

namespace flow::fuzz {

Datagram MakeDatagram(Random& random) { return MakeEntry(random); }

}  // namespace flow::fuzz
