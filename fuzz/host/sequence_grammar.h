// SPDX-License-Identifier: Apache-2.0
// Steps of a run at random: datagrams and messages that are valid, and what happens to the hosts.
#pragma once

#include "fuzz/grammar.h"

namespace flow::fuzz {

Datagram MakeEntry(Random& random);

}  // namespace flow::fuzz
