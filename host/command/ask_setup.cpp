#include "host/command/ask_setup.h"

#include <cstdio>
#include <ctime>

#include "host/base/error.h"

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
      span_(ResolveSpan(options.span, usual_seconds, now_, view_.zone)),
      names_(NamesFor(options)),
      counters_(options.store) {}

int AskSetup::Show(const Answer& answer) const {
  PrintAnswer(answer, view_, stdout);
  return kExitOk;
}

}  // namespace flow::host
