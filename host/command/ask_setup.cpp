// SPDX-License-Identifier: Apache-2.0
#include "host/command/ask_setup.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

#include "host/base/error.h"
#include "host/command/ask_source.h"

namespace flow::host {
namespace {

AnswerView ViewFor(const AskOptions& options) {
  AnswerView view = ViewOf(stdout);
  view.form = options.form;
  view.zone = Zone(options.utc);
  view.exact = options.exact;
  return view;
}

KeyNames NamesFor(const AskOptions& options) {
  KeyNames names;
  if (!options.names.empty()) names.ReadFile(options.names);
  for (const std::string& path : options.geo) names.ReadGeo(path);
  if (options.dns) names.AskDns();
  return names;
}

}  // namespace

AskSetup::AskSetup(const AskOptions& options, std::int64_t usual_seconds)
    : view_(ViewFor(options)),
      now_(std::time(nullptr)),
      names_(NamesFor(options)),
      counters_(OpenSource(options)),
      span_(SpanFor(options, usual_seconds)) {}

// Whoever reads captures asks about all of them, where nothing else is said.
TimeSpan AskSetup::SpanFor(const AskOptions& options, std::int64_t usual_seconds) {
  const bool says_when = !options.span.from.empty() || !options.span.to.empty();
  if (captures_ && !says_when) return counters_.Whole();
  return ResolveSpan(options.span, usual_seconds, now_, view_.zone);
}

std::unique_ptr<CounterSource> AskSetup::OpenSource(const AskOptions& options) {
  const bool has[] = {!options.store.empty(), !options.clickhouse.url.empty(),
                      !options.read.captures.empty()};
  if (std::ranges::count(has, true) != 1) {
    throw UsageError(
        "a question is asked of --store DIR, of --clickhouse URL or of --read CAPTURE...");
  }
  // What is wrong with the words is told before captures are read.
  ResolveSpan(options.span, kDaySeconds, now_, view_.zone);
  const bool reads = has[2];
  return host::OpenSource(reads ? captures_.emplace(options.read).directory() : options.store,
                          options.clickhouse);
}

}  // namespace flow::host
