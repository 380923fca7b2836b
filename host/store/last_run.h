// SPDX-License-Identifier: Apache-2.0
// What a store knows, when it is opened, of the run before.
#pragma once

#include <cstdint>
#include <string>

#include "host/store/database.h"

namespace flow::host {

// LastRunNotice tells what is missing where the last run was not ended; empty where it was.
std::string LastRunNotice(Database* database, std::int64_t now);

}  // namespace flow::host
