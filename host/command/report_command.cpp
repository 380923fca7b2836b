// SPDX-License-Identifier: Apache-2.0
#include "host/command/report_command.h"

#include <fmt/format.h>

#include <ctime>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include <algorithm>
#include "host/ask/stored_counters.h"
#include "host/base/build_text.h"
#include "host/base/error.h"
#include "host/command/ask_source.h"
#include "host/command/ask_store.h"
#include "host/command/capture_store.h"
#include "host/output/output_file.h"
#include "host/web/report_page.h"

namespace flow::host {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kRows = 25;       // of a group
constexpr std::size_t kRowsOfKey = 10;  // of a group, where one key is looked at
constexpr std::size_t kFlows = 100;     // of all, and of a key
constexpr std::int64_t kMostSteps = 150;

constexpr const char* kGroups[] = {"applications", "hosts",     "interfaces", "as",
                                   "totals",       "exporters", "protocols"};
constexpr const char* kFields[] = {"service", "host",     "exporter,interface",
                                   "as",      "exporter", "proto"};

// The largest keys of these groups have views of their own: flows, by filters as the page writes
// them.
std::string FilterOf(const std::string& group, const std::string& key) {
  if (group == "hosts") return "host " + key;
  if (group == "applications") return "port " + key;
  if (group == "as") return "as " + key.substr(std::min<std::size_t>(2, key.size()));
  const std::size_t at = key.find(" if ");
  if (group != "interfaces" || at == std::string::npos) return "";
  return fmt::format("exporter {} and interface {}", key.substr(0, at), key.substr(at + 4));
}

// The two directions of such a filter, as the page writes them.
std::vector<std::string> DirectionsOf(const std::string& group, const std::string& key) {
  const std::string filter = FilterOf(group, key);
  if (group != "interfaces") return {"src " + filter, "dst " + filter};
  const std::size_t at = filter.rfind("interface ");
  return {filter.substr(0, at) + "in " + filter.substr(at),
          filter.substr(0, at) + "out " + filter.substr(at)};
}

class Report {
 public:
  explicit Report(const PageReportOptions& options) : options_(options) {
    ask_.names = options.ask.names;
    ask_.geo = options.ask.geo;
    ask_.dns = options.ask.dns;
    ask_.form = AnswerForm::kJson;
    const bool has[] = {!options.ask.store.empty(), !options.ask.clickhouse.url.empty(),
                        !options.ask.read.captures.empty()};
    if (std::ranges::count(has, true) != 1) {
      throw UsageError(
          "a report is made of --store DIR, of --clickhouse URL or of --read CAPTURE...");
    }
    ask_.store = has[2] ? captures_.emplace(options.ask.read).directory() : options.ask.store;
    ask_.clickhouse = options.ask.clickhouse;
    span_ = Span();
    ask_.span = {fmt::format("@{}", span_.from), fmt::format("@{}", span_.to)};
    step_ = fmt::format("{}m", StepMinutes(span_.Seconds()));
  }

  std::string Make() {
    AddGroups();
    Add("exporters", ExportersOptions{ask_});
    Add("losses", LossesOptions{ask_});
    AddFlows("");
    for (const auto& [group, key] : keys_) AddKey(group, key);
    Json groups = Json::array();
    for (const std::string& group : counted_) groups.push_back({{"id", group}});
    const Json root{{"status",
                     {{"program", fmt::format("flowhost {}", BuildText())},
                      {"live", false},
                      {"now", now_},
                      {"from", span_.from},
                      {"to", span_.to},
                      {"groups", std::move(groups)}}},
                    {"answers", std::move(answers_)}};
    return ReportPage(root.dump(-1, ' ', false, Json::error_handler_t::replace));
  }

 private:
  TimeSpan Span() {
    const SpanWords& words = options_.ask.span;
    StoredCounters counters(OpenSource(ask_.store, ask_.clickhouse));
    if (captures_ && words.from.empty() && words.to.empty()) return counters.Whole();
    const TimeSpan span = ResolveSpan(words, kHourSeconds, now_, Zone(options_.ask.utc));
    return counters.CoverOf(span, kMinuteSeconds).span;
  }

  static std::int64_t StepMinutes(std::int64_t seconds) {
    constexpr std::int64_t kLengths[] = {1, 5, 10, 15, 30, 60, 120, 240, 360, 720};
    for (const std::int64_t minutes : kLengths) {
      if (seconds / (minutes * kMinuteSeconds) <= kMostSteps) return minutes;
    }
    return kDaySeconds / kMinuteSeconds;
  }

  // An answer has its question's words as a name. What a store does not count is left out.
  const Json* Add(const std::string& name, const AskCommand& command) {
    try {
      const Answered answered = AskStore(command);
      return &(answers_[name] = Json::parse(JsonText(answered.answer, answered.view)));
    } catch (const UsageError&) {
      return nullptr;
    }
  }

  void AddGroups() {
    for (const std::string group : kGroups) {
      for (const char* const by : {"bytes", "packets"}) {
        TopOptions top{ask_, group, step_};
        top.ask.by = by;
        top.ask.top = kRows;
        const Json* const answer = Add(fmt::format("top {} {}", group, by), top);
        if (answer == nullptr || by != std::string_view("bytes")) continue;
        counted_.push_back(group);
        NoteKeys(group, *answer);
      }
    }
  }

  void NoteKeys(const std::string& group, const Json& answer) {
    std::size_t noted = 0;
    for (const Json& row : answer["rows"]) {
      const std::string key = row["key"];
      if (noted == options_.keys || key == kOthersKey) break;
      if (FilterOf(group, key).empty()) continue;
      keys_.emplace_back(group, key);
      ++noted;
    }
  }

  void AddFlows(const std::string& filter) {
    FlowsOptions flows{ask_, filter, "", "bytes", ""};
    flows.ask.top = kFlows;
    Add(filter.empty() ? "flows" : "flows " + filter, flows);
  }

  void AddKey(const std::string& group, const std::string& key) {
    const std::string filter = FilterOf(group, key);
    AddFlows(filter);
    for (const char* const fields : kFields) {
      FlowsOptions flows{ask_, filter, fields, "", step_};
      // A host's own row is not shown.
      flows.ask.top = kRowsOfKey + 1;
      Add(fmt::format("flows {} bytes {}", fields, filter), flows);
    }
    for (const std::string& direction : DirectionsOf(group, key)) {
      Add(fmt::format("series {} bytes", direction), SeriesOptions{ask_, direction, "", "", step_});
    }
  }

  const PageReportOptions& options_;
  std::int64_t now_ = std::time(nullptr);
  AskOptions ask_;
  std::optional<CaptureStore> captures_;
  TimeSpan span_;
  std::string step_;
  Json answers_ = Json::object();
  std::vector<std::string> counted_;
  std::vector<std::pair<std::string, std::string>> keys_;
};

}  // namespace

int RunPageReport(const PageReportOptions& options) {
  const std::string page = Report(options).Make();
  OutputFile file(options.output);
  file.Write(page);
  file.Close();
  return kExitOk;
}

}  // namespace flow::host
