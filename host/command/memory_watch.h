// SPDX-License-Identifier: Apache-2.0
// Tells of what was let go for want of memory: once each kind, and at the end how much.
#pragma once

#include <array>

#include "host/base/memory_budget.h"

namespace flow::host {

class Console;

class MemoryWatch {
 public:
  // The console outlives the watch.
  MemoryWatch(std::size_t budget, Console& console) : budget_(budget), console_(console) {}

  // Look is to be called every second or so.
  void Look();
  void TellAll();

 private:
  std::size_t budget_;
  Console& console_;
  std::array<bool, kLetGoKinds> told_{};
};

}  // namespace flow::host
