// SPDX-License-Identifier: Apache-2.0
// In place of what answers over HTTP, where it is left out of the build.
#include "host/base/error.h"
#include "host/command/listen_web.h"
#include "host/command/report_command.h"
#include "host/command/serve_command.h"
#include "host/command/web_line.h"

namespace flow::host {
namespace {

[[noreturn]] void Refuse() {
  throw UsageError("this flowhost was built without what answers over HTTP (FLOW_WEB)");
}

}  // namespace

bool HasWeb() { return false; }

int RunServe(const ServeOptions& /*options*/) { Refuse(); }

int RunPageReport(const PageReportOptions& /*options*/) { Refuse(); }

class ListenWeb::Shown {};

ListenWeb::ListenWeb(const WebOptions& options, const Store* /*store*/, Lanes& /*lanes*/,
                     const StandIns& /*stand_ins*/, Console& /*console*/) {
  if (options.http.listen) Refuse();
}

ListenWeb::~ListenWeb() = default;

void ListenWeb::Take(const Tick& /*tick*/, const std::vector<Harvest>& /*harvests*/) {}
void ListenWeb::NoteReport(double /*seconds*/) {}
void ListenWeb::NoteReload(bool /*succeeded*/) {}

}  // namespace flow::host
