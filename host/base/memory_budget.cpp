// SPDX-License-Identifier: Apache-2.0
#include "host/base/memory_budget.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <string>

namespace flow::host {
namespace {

MemoryShares shares;
std::array<std::atomic<std::uint64_t>, kLetGoKinds> let_go;

// The part of a budget, in thousandths.
constexpr std::size_t Part(std::size_t budget, std::size_t thousandths) {
  return budget / 1000 * thousandths;
}

// The limit that a control group's file gives; none, unless it is a number.
std::size_t LimitIn(const std::string& path) {
  std::size_t limit = 0;
  std::ifstream file(path);
  return file >> limit ? limit : MemoryShares::kAll;
}

// Of the group that the process is in, and of those above it.
std::size_t GroupLimit() {
  std::ifstream groups("/proc/self/cgroup");
  std::size_t least = MemoryShares::kAll;
  for (std::string line; std::getline(groups, line);) {
    const bool is_unified = line.starts_with("0::");
    const std::size_t path_at = line.rfind(':');
    if (!is_unified && line.find(":memory:") == std::string::npos) continue;
    const std::string root = is_unified ? "/sys/fs/cgroup" : "/sys/fs/cgroup/memory";
    const char* const file = is_unified ? "/memory.max" : "/memory.limit_in_bytes";
    for (std::string path = line.substr(path_at + 1);; path.resize(path.rfind('/'))) {
      least = std::min(least, LimitIn(root + (path == "/" ? "" : path) + file));
      if (path.find('/') == std::string::npos) break;
    }
  }
  return least;
}

std::size_t AddressSpace() {
  rlimit limit{};
  if (getrlimit(RLIMIT_AS, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) {
    return MemoryShares::kAll;
  }
  return limit.rlim_cur;
}

}  // namespace

const MemoryShares& Shares() { return shares; }

std::size_t DefaultMemory() {
  const auto pages = static_cast<std::size_t>(std::max(sysconf(_SC_PHYS_PAGES), 0L));
  const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  const std::size_t half = pages * page / 2;
  return std::max(std::min({half, GroupLimit(), AddressSpace() / 3}), kLeastMemory);
}

// What a lane counts is there twice, once while it grows and once while it is brought together.
// Longer stretches of time are about eight: the interval, the one that is shown, the run, a
// database's bucket, and a store's minutes, hour and day.
void ShareMemory(std::size_t budget, std::size_t lanes) {
  const MemoryShares most;
  const auto number = [&](std::size_t thousandths, std::size_t bytes, std::size_t least,
                          std::size_t limit) {
    return std::clamp(Part(budget, thousandths) / bytes, least, limit);
  };
  shares.lane_keys = Part(budget, 150) / lanes;
  shares.period_keys = Part(budget, 50);
  shares.plugin = Part(budget, 200) / lanes;
  shares.handover = Part(budget, 40) / lanes;
  shares.archive = std::min(Part(budget, 40), most.archive);
  shares.mailbox = Part(budget, 20) / lanes;
  shares.queue = std::min(Part(budget, 60) / lanes, most.queue);
  shares.dropped_numbers = std::min(Part(budget, 10) / lanes, most.dropped_numbers);
  shares.exporters = number(10, 500, 1000, most.exporters);
  shares.templates = number(20 / std::min<std::size_t>(lanes, 20), 200, 1000, most.templates);
  shares.streams = static_cast<std::uint32_t>(number(40, 1200 * lanes, 1000, most.streams));
  shares.notes = number(10, 4000, 1000, most.notes);
  shares.texts = number(10, 1000, 1000, most.texts);
  shares.file_texts = number(10, 150, 10'000, most.file_texts);
  shares.known_notes = number(20, 150, 10'000, most.known_notes);
  shares.stored_keys = number(20, 1000, 2000, most.stored_keys);
  shares.flows_waiting = number(80, 300, 10'000, most.flows_waiting);
  shares.joined_parts = number(60, 72, 10'000, most.joined_parts);
}

void NoteLetGo(LetGo kind, std::uint64_t count) {
  let_go[static_cast<std::size_t>(kind)].fetch_add(count, std::memory_order_relaxed);
}

LetGoCounts LetGoSoFar() {
  LetGoCounts counts;
  for (std::size_t i = 0; i < kLetGoKinds; ++i) counts[i] = let_go[i];
  return counts;
}

const char* LetGoText(LetGo kind) {
  constexpr const char* kTexts[kLetGoKinds] = {
      "small keys, summed as others",
      "exporters without a record, summed as one",
      "templates of the fewest records, from the accounts",
      "templates that no record used, from those kept across restarts",
      "messages between meters",
      "templates and rates of the fewest records, from those kept for fresh meters",
      "datagrams of exporters that fill meters and send no record",
      "meters that had learnt too much, for fresh ones that know what is used",
      "texts, exporters and notes, beyond those that a store's tables have",
      "templates and rates, from those that collectors tell each other",
  };
  return kTexts[static_cast<std::size_t>(kind)];
}

}  // namespace flow::host
