// flowhost series: how much there was, step by step.
#pragma once

#include "host/command/ask_options.h"

namespace flow::host {

int RunSeries(const SeriesOptions& options);

}  // namespace flow::host
