// SPDX-License-Identifier: Apache-2.0
// What stands in place of a "?" in SQL, so that nothing that anybody typed becomes SQL.
#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace flow::host {

using SqlBlob = std::vector<std::uint8_t>;
using SqlValue = std::variant<std::int64_t, std::string, SqlBlob>;
using SqlValues = std::vector<SqlValue>;  // in the order of places

}  // namespace flow::host
