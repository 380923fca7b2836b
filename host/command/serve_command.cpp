// SPDX-License-Identifier: Apache-2.0
#include "host/command/serve_command.h"

#include <fmt/format.h>
#include <poll.h>

#include <csignal>

#include "flowhandlers/host_interfaces.h"
#include "host/base/console.h"
#include "host/base/error.h"
#include "host/base/memory_budget.h"
#include "host/command/ask_source.h"
#include "host/command/sandbox.h"
#include "host/command/signals.h"
#include "host/command/web_site.h"
#include "host/web/http_server.h"

namespace flow::host {
namespace {

void AwaitEnd(Signals* signals) {
  for (;;) {
    pollfd polled{signals->descriptor(), POLLIN, 0};
    poll(&polled, 1, -1);
    while (const std::optional<int> signal = signals->Take()) {
      if (*signal == SIGINT || *signal == SIGTERM) return;
    }
  }
}

}  // namespace

bool HasWeb() { return true; }

int RunServe(const ServeOptions& options) {
  Signals signals;  // before any thread
  Console console(kLogWarning);
  const std::string& url = options.web.clickhouse.url;
  if (options.web.store.empty() == url.empty()) {
    throw UsageError("what is shown is --store DIR or --clickhouse URL");
  }
  OpenSource(options.web.store, options.web.clickhouse);  // or HostError
  ShareMemory(DefaultMemory(), 1);
  WebSite site(options.web, false);
  const HttpServer server(options.web.http,
                          [&site](const HttpRequest& request) { return site.Answer(request); });
  console.Notice(fmt::format("http://{}/ shows {}", server.endpoint().Text(),
                             url.empty() ? options.web.store : url));
  if (options.is_restricted) EnterSandbox(UsesOf(options.web), console);
  AwaitEnd(&signals);
  site.End();
  return kExitOk;
}

}  // namespace flow::host
