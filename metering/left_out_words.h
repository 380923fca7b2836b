// SPDX-License-Identifier: Apache-2.0
// What a meter tells of records that it does not meter, where its policy has CountLeftOut on.
#pragma once

#include <cstdint>

#include "flowhandlers/counter_groups.h"
#include "flowhandlers/host_interfaces.h"

namespace flow {

// Out of line: records that are metered pass it by.
[[gnu::cold, gnu::noinline]] inline void TellLeftOut(IOmbrelStatsEngine* engine, int key_length,
                                                     const char* exporter_key, int reason) {
  engine->UpdateCounterKeyLen(COUNTERID_LEFTOUT, key_length, exporter_key, reason, 1);
}

}  // namespace flow
