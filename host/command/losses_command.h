// flowhost losses: what exporters lost, and where.
#pragma once

#include "host/command/ask_options.h"

namespace flow::host {

int RunLosses(const LossesOptions& options);

}  // namespace flow::host
