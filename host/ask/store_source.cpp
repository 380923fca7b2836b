// SPDX-License-Identifier: Apache-2.0
#include "host/ask/store_source.h"

#include <fmt/format.h>

#include <filesystem>
#include <utility>

#include "host/ask/stored_counters.h"
#include "host/base/error.h"
#include "host/store/schema.h"

namespace flow::host {
namespace {

class StatementRows final : public SourceRows {
 public:
  explicit StatementRows(Statement statement) : statement_(std::move(statement)) {}

  bool Step() override { return statement_.Step(); }
  [[nodiscard]] std::int64_t Integer(int column) const override {
    return statement_.Integer(column);
  }
  [[nodiscard]] double Real(int column) const override { return statement_.Real(column); }
  [[nodiscard]] std::string_view Text(int column) const override { return statement_.Text(column); }
  [[nodiscard]] bool IsNull(int column) const override { return statement_.IsNull(column); }

 private:
  Statement statement_;
};

Database OpenToRead(const std::string& directory) {
  if (!std::filesystem::exists(CountersPath(directory))) {
    throw HostError(fmt::format(
        "there is no store in {}: flowhost listen --store DIR and replay --store DIR make one",
        directory));
  }
  return Database::ToRead(CountersPath(directory));
}

}  // namespace

StoreSource::StoreSource(const std::string& directory)
    : flows_(directory), database_(OpenToRead(directory)) {
  const std::int64_t version = database_.Ask("PRAGMA user_version").value_or(0);
  if (database_.Ask("PRAGMA application_id").value_or(0) != kStoreId) {
    throw HostError(fmt::format("{} is no store of flowhost", database_.path()));
  }
  if (version != kStoreVersion) {
    throw HostError(fmt::format("{} has format {}; this flowhost knows {}", database_.path(),
                                version, kStoreVersion));
  }
}

std::unique_ptr<SourceRows> StoreSource::Ask(const std::string& sql, const SourceValues& values) {
  Statement statement = database_.Prepare(sql);
  int place = 0;
  for (const auto& value : values) {
    ++place;
    std::visit([&](const auto& bound) { statement.Bind(place, bound); }, value);
  }
  return std::make_unique<StatementRows>(std::move(statement));
}

std::string StoreSource::GroupTable(const StoredGroup& group, const Tier& tier,
                                    const TimeSpan& /*span*/) {
  return Identifier(TierTable(group.id, tier));
}

bool StoreSource::HasColumn(const std::string& table, const std::string& column) {
  return flow::host::HasColumn(&database_, table, column);
}

}  // namespace flow::host
