// SPDX-License-Identifier: Apache-2.0
#include "host/command/series_command.h"

#include <fmt/format.h>

#include "host/ask/filter.h"
#include "host/ask/series.h"
#include "host/ask/steps.h"
#include "host/base/error.h"
#include "host/command/ask_setup.h"

namespace flow::host {
namespace {

// An interface is "10.0.0.1:3" to people, and its key in the store "10.0.0.1 if 3".
std::string StoredKey(const std::string& group, const std::string& key) {
  if (group != "interfaces" || key.find(" if ") != std::string::npos) return key;
  const std::size_t colon = key.rfind(':');
  if (colon == std::string::npos) return key;
  std::string address = key.substr(0, colon);
  if (address.starts_with('[') && address.ends_with(']')) {
    address = address.substr(1, address.size() - 2);
  }
  return fmt::format("{} if {}", address, key.substr(colon + 1));
}

}  // namespace

Answered AnswerSeries(const SeriesOptions& options) {
  SeriesQuestion question;
  question.group = options.group;
  question.key = StoredKey(options.group, options.key);
  question.what = "all traffic";
  if (!options.group.empty()) question.what = fmt::format("{} {}", options.group, options.key);
  if (!options.filter.empty()) {
    if (!options.group.empty()) throw UsageError("a filter of flows and a key are two questions");
    question.filter = ParseFilter(options.filter);
    question.what = "flows of " + options.filter;
  }
  if (options.ask.by != "bytes" && options.ask.by != "packets") {
    throw UsageError(fmt::format("--by: a series has bytes or packets, no '{}'", options.ask.by));
  }
  question.by_packets = options.ask.by == "packets";
  question.step = ParseStep(options.step);
  AskSetup setup(options.ask, kHourSeconds);
  return setup.Give(AskSeries(setup.counters(), question, setup.span()));
}

}  // namespace flow::host
