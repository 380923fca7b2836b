// In place of what answers over HTTP, where it is left out of the build.
#include "host/base/error.h"
#include "host/command/report_command.h"
#include "host/command/serve_command.h"

namespace flow::host {

int RunServe(const ServeOptions& /*options*/) {
  throw UsageError("this flowhost was built without what answers over HTTP (FLOW_WEB)");
}

int RunPageReport(const PageReportOptions& /*options*/) {
  throw UsageError("this flowhost was built without the page (FLOW_WEB)");
}

}  // namespace flow::host
