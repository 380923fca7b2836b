// flowhost top: the largest keys of a group of counters.
#pragma once

#include "host/command/ask_options.h"

namespace flow::host {

int RunTop(const TopOptions& options);

}  // namespace flow::host
