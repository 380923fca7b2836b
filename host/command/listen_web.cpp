// SPDX-License-Identifier: Apache-2.0
#include "host/command/listen_web.h"

#include <fmt/format.h>
#include <prometheus/text_serializer.h>

#include <atomic>
#include <filesystem>
#include <system_error>

#include "flow_revision.h"
#include "flowhandlers/version.h"
#include "host/ask/stored_counters.h"
#include "host/base/console.h"
#include "host/base/error.h"
#include "host/command/web_site.h"
#include "host/store/store.h"
#include "host/web/http_server.h"
#include "host/web/metrics.h"

namespace flow::host {
namespace {

using prometheus::MetricType;

double SizeOf(const std::string& directory) {
  std::uintmax_t bytes = 0;
  std::error_code error;
  for (std::filesystem::recursive_directory_iterator it(directory, error), end; it != end;
       it.increment(error)) {
    std::error_code gone;
    if (it->is_regular_file(gone)) bytes += it->file_size(gone);
  }
  return static_cast<double>(bytes);
}

}  // namespace

class ListenWeb::Shown {
 public:
  Shown(const WebOptions& options, const Store* store, Lanes& lanes, const StandIns& stand_ins,
        Console& console)
      : options_(WithStore(options, store)),
        store_(store),
        lanes_(lanes),
        metrics_(options.metrics_exporters, stand_ins),
        site_(options_, true),
        server_(options_.http, [this](const HttpRequest& request) { return Answer(request); }) {
    console.Notice(fmt::format("http://{}/ shows what is metered", server_.endpoint().Text()));
  }

  ~Shown() { site_.End(); }
  Shown(const Shown&) = delete;
  Shown& operator=(const Shown&) = delete;

  void Take(const Tick& tick, const std::vector<Harvest>& harvests) {
    metrics_.Take(tick, harvests);
  }
  void NoteReport(double seconds) {
    ++reports_;
    report_seconds_ = report_seconds_ + seconds;
  }
  void NoteReload(bool succeeded) { ++(succeeded ? reloads_ : refused_reloads_); }

 private:
  static WebOptions WithStore(WebOptions options, const Store* store) {
    options.store = store == nullptr ? "" : store->directory();
    return options;
  }
  [[nodiscard]] HttpAnswer Answer(const HttpRequest& request) const;
  void AddProgram(MetricFamilies* families) const;
  void AddLanes(MetricFamilies* families) const;
  void AddStore(MetricFamilies* families) const;

  WebOptions options_;
  const Store* store_;  // null for none
  Lanes& lanes_;
  Metrics metrics_;
  std::atomic<std::uint64_t> reports_ = 0;
  std::atomic<double> report_seconds_ = 0;  // one thread adds to it
  std::atomic<std::uint64_t> reloads_ = 0;
  std::atomic<std::uint64_t> refused_reloads_ = 0;
  WebSite site_;
  HttpServer server_;  // the last to be made, the first to go
};

HttpAnswer ListenWeb::Shown::Answer(const HttpRequest& request) const {
  if (request.path != "/metrics") return site_.Answer(request);
  MetricFamilies families = metrics_.Families();
  AddProgram(&families);
  AddLanes(&families);
  AddStore(&families);
  std::erase_if(families, [](const auto& family) { return family.metric.empty(); });
  return {.type = "text/plain; version=0.0.4; charset=utf-8",
          .body = prometheus::TextSerializer().Serialize(families)};
}

void ListenWeb::Shown::AddProgram(MetricFamilies* families) const {
  families->push_back(
      {"flowhost_build_info", "1, for the version that runs", MetricType::Gauge, {}});
  AddMetric(families, {{"version", FLOWHANDLERS_VERSION}, {"revision", FLOW_REVISION}}, 1);
  families->push_back({"flowhost_report_seconds_total",
                       "Time that reports took, and what is counted was brought together",
                       MetricType::Counter,
                       {}});
  AddMetric(families, {}, report_seconds_);
  families->push_back(
      {"flowhost_reports_total", "How often that was done", MetricType::Counter, {}});
  AddMetric(families, {}, static_cast<double>(reports_));
  families->push_back({"flowhost_policy_reloads_total",
                       "Looks at the policies that a signal asked for, by result",
                       MetricType::Counter,
                       {}});
  AddMetric(families, {{"result", "done"}}, static_cast<double>(reloads_));
  AddMetric(families, {{"result", "refused"}}, static_cast<double>(refused_reloads_));
}

void ListenWeb::Shown::AddLanes(MetricFamilies* families) const {
  const std::vector<LaneWorker::Load> loads = lanes_.Loads();
  families->push_back(
      {"flowhost_lane_busy_seconds_total", "Processor time of a lane", MetricType::Counter, {}});
  for (std::size_t i = 0; i < loads.size(); ++i) {
    AddMetric(families, {{"lane", std::to_string(i + 1)}}, loads[i].busy_seconds);
  }
  families->push_back({"flowhost_lane_queue_batches",
                       "Batches of datagrams that wait for a lane",
                       MetricType::Gauge,
                       {}});
  for (std::size_t i = 0; i < loads.size(); ++i) {
    AddMetric(families, {{"lane", std::to_string(i + 1)}}, static_cast<double>(loads[i].batches));
  }
}

// While the store cannot be read there is no time at which it was written.
void ListenWeb::Shown::AddStore(MetricFamilies* families) const {
  if (store_ == nullptr) return;
  families->push_back({"flowhost_store_bytes", "Size of the store's files", MetricType::Gauge, {}});
  AddMetric(families, {}, SizeOf(options_.store));
  families->push_back({"flowhost_store_write_seconds_total",
                       "Time that writing the store took",
                       MetricType::Counter,
                       {}});
  AddMetric(families, {}, store_->WriteSeconds());
  families->push_back({"flowhost_store_last_minute_timestamp_seconds",
                       "Until when minutes were written, since 1970",
                       MetricType::Gauge,
                       {}});
  try {
    AddMetric(families, {}, static_cast<double>(StoredCounters(options_.store).Whole().to));
  } catch (const std::exception&) {
    families->pop_back();
  }
}

ListenWeb::ListenWeb(const WebOptions& options, const Store* store, Lanes& lanes,
                     const StandIns& stand_ins, Console& console) {
  if (!options.http.listen) return;
  try {
    shown_ = std::make_unique<Shown>(options, store, lanes, stand_ins, console);
  } catch (const HostError& error) {
    // A port that another program has is no reason to lose datagrams.
    console.Error(fmt::format("{}; nothing is shown over HTTP", error.what()));
  }
}

ListenWeb::~ListenWeb() = default;

void ListenWeb::Take(const Tick& tick, const std::vector<Harvest>& harvests) {
  if (shown_) shown_->Take(tick, harvests);
}

void ListenWeb::NoteReport(double seconds) {
  if (shown_) shown_->NoteReport(seconds);
}

void ListenWeb::NoteReload(bool succeeded) {
  if (shown_) shown_->NoteReload(succeeded);
}

}  // namespace flow::host
