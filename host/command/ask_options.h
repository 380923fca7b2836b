// SPDX-License-Identifier: Apache-2.0
// What the command line asks of a store.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/ask/times.h"
#include "host/command/capture_store.h"
#include "host/output/answers.h"
#include "host/scale/clickhouse_server.h"

namespace flow::host {

// What every question needs. Empty texts are what was not said.
struct AskOptions {
  std::string store;
  ClickHouseOptions clickhouse;  // a server rather than a store
  CaptureOptions read;           // captures rather than a store
  SpanWords span;
  std::string by = "bytes";
  std::size_t top = 10;
  std::string names;
  std::vector<std::string> geo;
  bool dns = false;
  AnswerForm form = AnswerForm::kText;
  bool exact = false;
  bool utc = false;
};

struct TopOptions {
  AskOptions ask;
  std::string group;
  std::string step;  // not empty: what each had step by step as well
};

struct FlowsOptions {
  AskOptions ask;
  std::string filter;
  std::string group_by;
  std::string sort;  // empty: by what `by` says
  std::string step;  // as in TopOptions
};

struct SeriesOptions {
  AskOptions ask;
  std::string filter;  // flows, else a key of a group, else all traffic
  std::string group;
  std::string key;
  std::string step;
};

struct LossesOptions {
  AskOptions ask;
};

struct ExportersOptions {
  AskOptions ask;
};

struct CompareOptions {
  AskOptions ask;
  std::string group;
  std::string against;
  std::string of;  // a host
  bool new_peers = false;
};

// The page of a span, as one file.
struct PageReportOptions {
  AskOptions ask;
  std::string output;
  std::size_t keys = 3;  // of a group that have views of their own
};

}  // namespace flow::host
