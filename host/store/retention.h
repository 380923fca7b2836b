// SPDX-License-Identifier: Apache-2.0
// How far a store forgets where its clock may be wrong: a clock that is ahead by a year must not
// take all history with it, and what it wrote must not stand in the way afterwards.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "host/store/database.h"
#include "host/store/store_options.h"

namespace flow::host {

class Retention {
 public:
  // Before the database knows of the options; captures may be of any time, and nothing is guarded.
  Retention(Database* database, const StoreOptions& options);

  // Next tells of the minute behind another. A leap of more than a day holds deletion for a day.
  void Next(std::int64_t last_minute, std::int64_t minute);

  // Before is from when rows stay that are kept so long; 0 for all. No more than a day's worth goes
  // at once, unless this run has begun with other options than the one before.
  [[nodiscard]] std::int64_t Before(std::int64_t now, std::int64_t keep, std::int64_t oldest) const;
  [[nodiscard]] std::int64_t Before(std::size_t tier, std::int64_t now) const;

  // EndPass says that what was due has been deleted.
  void EndPass() { has_changed_ = false; }

  // SetAside moves what has been written for times behind this one out of the way: rows into a
  // database beside the counters, files of flows under other names.
  void SetAside(std::int64_t end);

  // What is to be told, once; empty for nothing.
  std::string TakeNotice();

 private:
  Database& database_;
  const StoreOptions& options_;
  bool has_changed_ = false;
  std::int64_t held_until_ = 0;  // by the clock of the minutes
  std::string notice_;
};

}  // namespace flow::host
