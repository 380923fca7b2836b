// SPDX-License-Identifier: Apache-2.0
#include "host/command/api.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>
#include <string_view>
#include <variant>

#include "host/ask/stored_counters.h"
#include "host/base/build_text.h"
#include "host/base/error.h"
#include "host/command/ask_source.h"
#include "host/command/ask_store.h"
#include "host/store/read_limit.h"

namespace flow::host {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::chrono::seconds kLongest{30};  // for an answer
constexpr std::size_t kMostRows = 10'000;

// A question, the parameter that the command line has without a name, and the others: options of
// the same name. All have those of kTimes.
struct Question {
  std::string_view command;
  std::string_view positional;
  std::array<std::string_view, 9> options;
};
constexpr Question kQuestions[] = {
    {"top", "group", {"by", "top", "step"}},
    {"flows", "filter", {"group-by", "by", "top", "sort", "step"}},
    {"series",
     "filter",
     {"group", "key", "host", "interface", "exporter", "application", "as", "by", "step"}},
    {"losses", "", {}},
    {"exporters", "", {}},
    {"compare", "group", {"against", "by", "top", "of", "new-peers"}},
};
constexpr std::string_view kTimes[] = {"from", "to", "utc"};
constexpr std::string_view kFlags[] = {"utc", "new-peers"};

template <class Names>
bool Has(const Names& names, std::string_view name) {
  return !name.empty() && std::ranges::find(names, name) != std::end(names);
}

void CheckParameter(const HttpQuery& query, const std::string& name, const std::string& value) {
  if (std::ranges::count(query, name, &HttpQuery::value_type::first) > 1) {
    throw UsageError(fmt::format("{} is there twice", name));
  }
  if (value.find('\0') != std::string::npos) throw UsageError(fmt::format("{} has a zero", name));
  if (Has(kFlags, name) && value != "1" && !value.empty()) {
    throw UsageError(fmt::format("{} is 1, or not there", name));
  }
}

// The words of the command line that ask the same.
std::vector<std::string> WordsOf(const Question& question, const HttpQuery& query) {
  std::vector<std::string> words{"flowhost", std::string(question.command), "--json"};
  std::string positional;
  for (const auto& [name, value] : query) {
    CheckParameter(query, name, value);
    if (name == question.positional) {
      positional = value;
    } else if (!Has(question.options, name) && !Has(kTimes, name)) {
      throw UsageError(fmt::format("/api/{} has no parameter {}", question.command, name));
    } else if (Has(kFlags, name)) {
      words.push_back("--" + name);
    } else if (!value.empty()) {
      words.push_back(fmt::format("--{}={}", name, value));
    }
  }
  if (!positional.empty()) words.insert(words.end(), {"--", positional});
  return words;
}

AskCommand CommandOf(const std::vector<std::string>& words, const WebOptions& options) {
  std::vector<const char*> arguments;
  for (const std::string& word : words) arguments.push_back(word.c_str());
  CLI::App app;
  const AskCommandLine line(&app);
  try {
    app.parse(static_cast<int>(arguments.size()), arguments.data());
  } catch (const CLI::ParseError& error) {
    throw UsageError(error.what());
  }
  AskCommand command = line.Parsed().value();
  std::visit(
      [&](auto& asked) {
        asked.ask.store = options.store;
        asked.ask.clickhouse = options.clickhouse;
        asked.ask.names = options.names;
        asked.ask.geo = options.geo;
        if (asked.ask.top <= kMostRows) return;
        throw UsageError(fmt::format("top: an answer has at most {} rows", kMostRows));
      },
      command);
  return command;
}

std::string_view UnitOf(ValueKind kind) {
  if (kind == ValueKind::kBytes) return "bytes";
  return kind == ValueKind::kPackets ? "packets" : "count";
}

Json GroupJson(const StoredGroup& group) {
  Json columns = Json::array();
  for (const StoredGroup::Column& column : group.columns) {
    columns.push_back(
        {{"name", column.name}, {"title", column.title}, {"unit", UnitOf(column.kind)}});
  }
  return {{"id", group.id},
          {"title", group.title},
          {"key", group.key_title},
          {"columns", std::move(columns)}};
}

Json ZoneJson(const Zone& zone, std::int64_t now) {
  const Zone::Clock clock = zone.At(now);
  return {{"name", zone.Name(now)}, {"offset", Zone(true).Time(clock) - now}};
}

}  // namespace

HttpAnswer Api::Answer(const HttpRequest& request) const {
  constexpr std::string_view kRoot = "/api/";
  const std::string_view name = std::string_view(request.path).substr(kRoot.size());
  const ReadLimitScope limit(ReadLimit(ReadLimit::Clock::now() + kLongest, ended_));
  if (name == "status") return Status(request);
  const auto question = std::ranges::find(kQuestions, name, &Question::command);
  if (question == std::end(kQuestions)) {
    return ErrorAnswer(404,
                       "there are /api/status, top, flows, series, losses, exporters, compare");
  }
  const Answered answered = AskStore(CommandOf(WordsOf(*question, request.query), options_));
  HttpAnswer answer{.type = kJsonType};
  answer.body = JsonText(answered.answer, answered.view);
  return answer;
}

HttpAnswer Api::Status(const HttpRequest& request) const {
  bool is_utc = false;
  for (const auto& [name, value] : request.query) {
    CheckParameter(request.query, name, value);
    if (name != "utc") throw UsageError(fmt::format("/api/status has no parameter {}", name));
    is_utc = true;
  }
  StoredCounters counters(OpenSource(options_.store, options_.clickhouse));
  const std::int64_t now = std::time(nullptr);
  const TimeSpan whole = counters.Whole();
  const bool is_empty = whole.from == 0;
  Json root{{"program", fmt::format("flowhost {}", BuildText())},
            {"live", is_live_},
            {"now", now},
            {"zone", ZoneJson(Zone(is_utc), now)},
            {"from", is_empty ? Json() : Json(whole.from)},
            {"to", is_empty ? Json() : Json(whole.to)}};
  root["groups"] = Json::array();
  for (const StoredGroup& group : counters.AllGroups()) root["groups"].push_back(GroupJson(group));
  HttpAnswer answer{.type = kJsonType};
  answer.body = root.dump(1, ' ', false, Json::error_handler_t::replace) + '\n';
  return answer;
}

}  // namespace flow::host
