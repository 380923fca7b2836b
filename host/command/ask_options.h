// What the command line asks of a store.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/ask/times.h"
#include "host/output/answers.h"

namespace flow::host {

// What every question needs. Empty texts are what was not said.
struct AskOptions {
  std::string store;
  SpanWords span;
  std::string by = "bytes";
  std::size_t top = 10;
  std::string names;
  AnswerForm form = AnswerForm::kText;
  bool exact = false;
  bool utc = false;
};

struct TopOptions {
  AskOptions ask;
  std::string group;
};

struct FlowsOptions {
  AskOptions ask;
  std::string filter;
  std::string group_by;
  std::string sort;  // empty: by what `by` says
};

}  // namespace flow::host
