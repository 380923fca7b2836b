// SPDX-License-Identifier: Apache-2.0
#include "host/store/last_run.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <ctime>
#include <optional>

#include "host/store/schema.h"

namespace flow::host {

std::string LastRunNotice(Database* database, std::int64_t now) {
  const std::optional<std::int64_t> alive =
      database->Ask("SELECT alive FROM runs WHERE ended IS NULL ORDER BY run DESC LIMIT 1");
  if (!alive || *alive >= now) return "";
  const auto text = [](std::int64_t time, bool has_day) {
    const std::tm utc = fmt::gmtime(static_cast<std::time_t>(time));
    return has_day ? fmt::format("{:%Y-%m-%d %H:%M:%S}", utc) : fmt::format("{:%H:%M:%S}", utc);
  };
  const bool is_one_day = *alive / kDaySeconds == now / kDaySeconds;
  return fmt::format("the last run was not ended: data from {} to {} UTC is missing",
                     text(*alive, true), text(now, !is_one_day));
}

}  // namespace flow::host
