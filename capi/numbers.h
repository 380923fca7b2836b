// SPDX-License-Identifier: Apache-2.0
// The numbers that stand for identifiers in C.
#pragma once

#include <cstdint>

#include "flowhandlers/guid.h"

namespace flow::capi {

// GroupNumber gives the FH_GROUP_ of a counter group.
std::uint16_t GroupNumber(const GUID& group);

// The number of a template channel, and the channel of a number; null for any other number.
int ChannelNumber(const GUID& channel);
const GUID* ChannelOf(int number);

}  // namespace flow::capi
