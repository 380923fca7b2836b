// flowhost info: what the plug-in offers.
#pragma once

#include "host/options.h"

namespace flow::host {

int RunInfo(const InfoOptions& options);

}  // namespace flow::host
