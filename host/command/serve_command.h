// SPDX-License-Identifier: Apache-2.0
// flowhost serve: the page and the questions to a store, over HTTP.
#pragma once

#include "host/command/web_options.h"

namespace flow::host {

int RunServe(const ServeOptions& options);

}  // namespace flow::host
