// SPDX-License-Identifier: Apache-2.0
// The options of what answers over HTTP, for the commands that have it.
#pragma once

#include "host/command/web_options.h"

namespace CLI {
class App;
}

namespace flow::host {

// HasWeb tells whether this build answers over HTTP. One that does not lists none of its commands
// and options, and says why where they are used.
bool HasWeb();

// AddServe adds the command to app; it is given where Parsed.
CLI::App* AddServe(CLI::App* app, ServeOptions* options);

// AddListenWeb adds what a collector shows over HTTP while it runs; nothing without --http.
void AddListenWeb(CLI::App* app, WebOptions* options);

// AddNoSandbox adds the option of servers that keeps them from giving up what they do not need.
void AddNoSandbox(CLI::App* app, bool* is_restricted);

}  // namespace flow::host
