// flowhost compare: one time beside another.
#pragma once

#include "host/command/ask_options.h"

namespace flow::host {

int RunCompare(const CompareOptions& options);

}  // namespace flow::host
