// SPDX-License-Identifier: Apache-2.0
#include "host/command/memory_watch.h"

#include <fmt/format.h>

#include <utility>

#include "host/base/console.h"
#include "host/base/number_text.h"

namespace flow::host {

void MemoryWatch::Look() {
  const LetGoCounts counts = LetGoSoFar();
  for (std::size_t i = 0; i < kLetGoKinds; ++i) {
    if (counts[i] == 0 || std::exchange(told_[i], true)) continue;
    console_.Notice(fmt::format("the memory of {} (--memory) is full: let go are {}",
                                SiBytes(budget_), LetGoText(static_cast<LetGo>(i))));
  }
}

void MemoryWatch::TellAll() {
  const LetGoCounts counts = LetGoSoFar();
  for (std::size_t i = 0; i < kLetGoKinds; ++i) {
    if (counts[i] == 0) continue;
    console_.Notice(fmt::format("let go for want of memory in this run: {} {}",
                                Thousands(counts[i]), LetGoText(static_cast<LetGo>(i))));
  }
}

}  // namespace flow::host
