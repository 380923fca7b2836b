// SPDX-License-Identifier: Apache-2.0
// How much memory the process may take for what exporters send, and what each part of it may.
//
// The budget is the process's own: it is shared out once, before anything is kept. Without one, the
// parts have bounds that suit any machine. Parts whose use grows with what is sent let the least
// valuable go at their share, and count it here, so that somebody tells.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>

namespace flow::host {

struct MemoryShares {
  static constexpr std::size_t kAll = std::numeric_limits<std::size_t>::max();

  // Bytes.
  std::size_t lane_keys = kAll;    // that a lane counts, until they are reaped
  std::size_t period_keys = kAll;  // of any longer stretch of time
  std::size_t plugin = kAll;       // what a lane's meters keep
  std::size_t handover = kAll;     // what a lane keeps for meters that take the place of its own
  std::size_t archive = std::size_t{64} << 20;          // templates kept across restarts
  std::size_t mailbox = kAll;                           // messages that wait for a lane
  std::size_t queue = std::size_t{64} << 20;            // datagrams that wait for a lane
  std::size_t dropped_numbers = std::size_t{32} << 20;  // of datagrams that found the queue full

  // Numbers.
  std::size_t exporters = std::size_t{1} << 16;    // in any table of them
  std::size_t templates = std::size_t{1} << 18;    // that a lane's accounts know
  std::uint32_t streams = std::uint32_t{1} << 16;  // numbered, of each kind, of a lane
  std::size_t notes = std::size_t{1} << 16;        // of a group
  std::size_t texts = std::size_t{1} << 16;        // of flows, until they are reaped
  std::size_t file_texts = std::size_t{1} << 20;   // of flows, in a store's file of an hour
  std::size_t known_notes = std::size_t{1} << 20;  // that a store knows to have been written
  std::size_t stored_keys = kAll;                  // of a group, in a store's running spans
  std::uint64_t flows_waiting = 1'500'000;         // for a store, half a gigabyte
  std::uint64_t joined_parts = 16'000'000;         // of flows, in questions about whole ones
};

// Shares is what parts of the process go by.
const MemoryShares& Shares();

// ShareMemory shares a budget out among the parts of a process with so many lanes.
void ShareMemory(std::size_t budget, std::size_t lanes);

// DefaultMemory is half of the machine's memory, at most what the control group may have, and at
// most a third of the address space.
std::size_t DefaultMemory();

// The least budget, in which a collector can work.
inline constexpr std::size_t kLeastMemory = std::size_t{64} << 20;

// What was let go for want of memory.
enum class LetGo : std::uint8_t {
  kKeys,
  kExporters,
  kTemplates,
  kArchived,
  kMessages,
  kHandover,
  kHeldBack,
  kMeters,
  kTexts,
  kLessons,
};
inline constexpr std::size_t kLetGoKinds = 10;

void NoteLetGo(LetGo kind, std::uint64_t count);
using LetGoCounts = std::array<std::uint64_t, kLetGoKinds>;
LetGoCounts LetGoSoFar();

// "small keys, summed as others".
const char* LetGoText(LetGo kind);

}  // namespace flow::host
