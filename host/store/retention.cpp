// SPDX-License-Identifier: Apache-2.0
#include "host/store/retention.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <utility>
#include <vector>

#include "host/store/schema.h"
#include "host/store/store_files.h"

namespace flow::host {
namespace {

constexpr std::string_view kHeldUntil = "deletion_held_until";

std::string TimeText(std::int64_t time) {
  return fmt::format("{:%Y-%m-%d %H:%M} UTC", fmt::gmtime(static_cast<std::time_t>(time)));
}

bool KeepsOtherwise(Database* database, const StoreOptions& options) {
  Statement tiers = database->Prepare("SELECT tier, keep_seconds FROM tiers");
  while (tiers.Step()) {
    for (std::size_t i = 0; i < std::size(kTiers); ++i) {
      if (tiers.Text(0) != kTiers[i].name) continue;
      if (tiers.Integer(1) != options.keep_seconds[i]) return true;
    }
  }
  const auto flows = database->Ask("SELECT value FROM meta WHERE name = 'keep_flows_seconds'");
  return flows.value_or(options.keep_flows_seconds) != options.keep_flows_seconds;
}

// Those that have rows by bucket.
std::vector<std::string> TablesOfBuckets(Database* database) {
  std::vector<std::string> tables;
  Statement find = database->Prepare(
      "SELECT m.name FROM main.sqlite_schema AS m, pragma_table_info(m.name) AS c "
      "WHERE m.type = 'table' AND c.name = 'bucket'");
  while (find.Step()) tables.emplace_back(find.Text(0));
  return tables;
}

}  // namespace

Retention::Retention(Database* database, const StoreOptions& options)
    : database_(*database),
      options_(options),
      has_changed_(KeepsOtherwise(database, options)),
      held_until_(database->Ask(fmt::format("SELECT value FROM meta WHERE name = '{}'", kHeldUntil))
                      .value_or(0)) {
  // A clock that was mended does not get there for long.
  if (has_changed_ || held_until_ > std::time(nullptr) + kDaySeconds) held_until_ = 0;
}

void Retention::Next(std::int64_t last_minute, std::int64_t minute) {
  if (options_.waits || has_changed_ || last_minute == 0 || minute - last_minute <= kDaySeconds) {
    return;
  }
  held_until_ = minute + kDaySeconds;
  PutMeta(&database_, kHeldUntil, held_until_);
  notice_ = fmt::format(
      "the store's last minute is {}, {} days before this one: if the clock is right, what is "
      "older "
      "than it is kept goes from {} on, a day's worth an hour",
      TimeText(last_minute), (minute - last_minute) / kDaySeconds, TimeText(held_until_));
}

std::int64_t Retention::Before(std::int64_t now, std::int64_t keep, std::int64_t oldest) const {
  if (keep == 0) return 0;
  if (options_.waits || has_changed_) return now - keep;
  return now < held_until_ ? 0 : std::min(now - keep, oldest + kDaySeconds);
}

std::int64_t Retention::Before(std::size_t tier, std::int64_t now) const {
  const auto oldest = database_.Ask(
      fmt::format("SELECT min(bucket) FROM buckets WHERE tier = '{}'", kTiers[tier].name));
  return Before(now, options_.keep_seconds[tier], oldest.value_or(0));
}

void Retention::SetAside(std::int64_t end) {
  const auto last = database_.Ask("SELECT max(bucket) FROM buckets WHERE tier = 'minute'");
  if (options_.waits || last.value_or(0) < end) return;
  const std::string path =
      fmt::format("{}/set-aside-{}.sqlite", options_.directory, std::time(nullptr));
  MakeFile(path);
  database_.Prepare("ATTACH ? AS aside").Bind(1, path).Run();
  database_.Begin();
  try {
    for (const std::string& name : TablesOfBuckets(&database_)) {
      const std::string table = Identifier(name);
      database_.Execute(
          fmt::format("CREATE TABLE aside.{0} AS SELECT * FROM main.{0} WHERE bucket >= {1}; "
                      "DELETE FROM main.{0} WHERE bucket >= {1}",
                      table, end));
    }
    database_.Execute(fmt::format(
        "UPDATE runs SET alive = max(started, {0}), ended = max(started, {0}) WHERE alive > {0}; "
        "DELETE FROM runs WHERE started >= {0}; DELETE FROM gaps WHERE ended > {0}; "
        "DELETE FROM flow_files WHERE hour >= {0}",
        end));
    database_.Commit();
  } catch (...) {
    database_.Rollback();
    database_.Execute("DETACH aside");
    throw;
  }
  database_.Execute("DETACH aside");
  for (const FlowFileEntry& file : ListFlowFiles(options_.directory)) {
    std::error_code ignored;
    if (file.hour >= end) std::filesystem::rename(file.path, file.path + ".set-aside", ignored);
  }
  notice_ = fmt::format(
      "the store had minutes up to {}, which is yet to come: what is behind {} is set aside, in {}",
      TimeText(*last), TimeText(end), path);
}

std::string Retention::TakeNotice() { return std::exchange(notice_, ""); }

}  // namespace flow::host
