// flowhost exporters: who exports, and who fell silent.
#pragma once

#include "host/command/ask_options.h"

namespace flow::host {

int RunExporters(const ExportersOptions& options);

}  // namespace flow::host
