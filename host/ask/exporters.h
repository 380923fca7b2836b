// SPDX-License-Identifier: Apache-2.0
// What exporters sent, lost and when they were silent.
#pragma once

#include "host/ask/answer.h"
#include "host/ask/key_names.h"
#include "host/ask/stored_counters.h"

namespace flow::host {

// AskLosses has a row for each exporter and reason, minute by minute as far as minutes are kept.
Answer AskLosses(StoredCounters* counters, const TimeSpan& span, const KeyNames& names);

// AskExporters has a row for each exporter and version, with the times in the span in which it said
// nothing for five minutes or more while the collector ran.
Answer AskExporters(StoredCounters* counters, const TimeSpan& span, const KeyNames& names,
                    const Zone& zone);

}  // namespace flow::host
