#include "host/replay_command.h"

#include <fmt/format.h>

#include <optional>

#include "host/capture/capture_reader.h"
#include "host/component/call_trace.h"
#include "host/component/plugin_library.h"
#include "host/console.h"
#include "host/error.h"
#include "host/exit_watch.h"
#include "host/meter_setup.h"
#include "host/progress.h"
#include "host/report/csv_output.h"
#include "host/report/json_output.h"
#include "host/report/sqlite_output.h"
#include "host/report/summary.h"

namespace flow::host {
namespace {

class Replay {
 public:
  explicit Replay(const ReplayOptions& options)
      : options_(options),
        console_(options.meter.log_level),
        progress_(console_),
        setup_(options.meter, options.trace, console_) {
    report_options_ = options.output.report;
    report_options_.group_ids = setup_.GroupIds(options.output.report.group_ids);
  }

  int Run() {
    const ExitWatch watch([this] { PluginEndedProcess(); });
    setup_.Start();
    for (const std::string& path : options_.captures) ReadCapture(path);
    Report();
    return failed_ ? kExitTrouble : kExitOk;
  }

 private:
  void ReadCapture(const std::string& path) {
    CaptureResult& result = captures_.emplace_back(CaptureResult{path, 0, ""});
    try {
      CaptureReader reader(path);
      CapturedPacket packet;
      while (reader.Next(&packet)) {
        ++result.packets;
        setup_.intake().Take(reader.LinkType(), packet);
        if (progress_.IsDue()) progress_.Show(path, reader.Position(), setup_.Records());
      }
    } catch (const HostError& error) {
      result.error = error.what();
      Fail(error.what());
    }
    console_.ClearProgress();
  }

  void Report() {
    const double seconds = progress_.Seconds();
    StatsStore merged(setup_.groups());
    ExporterTable exporters;
    const StatsStore& store = setup_.Merge(&merged, &exporters);
    const host::Report report{captures_, setup_.intake().counts(), store, exporters.Rows(),
                              seconds};
    if (report.exporters.empty() && report.intake.Unclaimed() > 0) {
      console_.Notice("no export datagram was found; exporters that use another port need --port");
    }
    const OutputOptions& output = options_.output;
    // A document on standard output stands there alone; where nothing was read there is no summary.
    if (output.json != "-" && report.intake.Packets() > 0)
      PrintSummary(report, report_options_, stdout);
    Write(output.json, [&] { WriteJson(report, report_options_, output.json); });
    Write(output.csv, [&] { WriteCsv(report, report_options_, output.csv); });
    Write(output.sqlite, [&] { WriteSqlite(report, report_options_, output.sqlite); });
  }

  // One output that cannot be written keeps none of the others from it.
  template <class Writer>
  void Write(const std::string& path, Writer&& writer) {
    if (path.empty()) return;
    try {
      writer();
    } catch (const HostError& error) {
      Fail(error.what());
    }
  }

  void Fail(const char* text) {
    failed_ = true;
    console_.Error(text);
  }

  void PluginEndedProcess() {
    console_.Error(
        "the plug-in ended the process because it cannot read a policy file; its message stands "
        "above");
    if (!captures_.empty()) Report();
  }

  const ReplayOptions& options_;
  Console console_;
  Progress progress_;
  MeterSetup setup_;
  ReportOptions report_options_;
  std::vector<CaptureResult> captures_;
  bool failed_ = false;
};

}  // namespace

int RunReplay(const ReplayOptions& options) { return Replay(options).Run(); }

}  // namespace flow::host
