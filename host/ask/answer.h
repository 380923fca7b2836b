// SPDX-License-Identifier: Apache-2.0
// What a question is answered with: a table, and what it covers.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "host/ask/times.h"

namespace flow::host {

enum class ValueKind : std::uint8_t {
  kKey,   // text that names the row
  kText,  // text beside it; a column without any is not shown
  kBytes,
  kPackets,
  kCount,
  kBitRate,
  kPacketRate,
  kShare,     // 1 is all
  kChange,    // 1 is as much as before, 0 nothing
  kTime,      // milliseconds since 1970
  kDuration,  // milliseconds
  kOffset,    // milliseconds ahead
  kLine,      // values one after the other, for who sees pictures
  kBar,       // a part of the largest, likewise
};

struct AnswerColumn {
  std::string id;  // in files
  std::string title;
  ValueKind kind = ValueKind::kText;
};

// Nothing where a value is not known.
using AnswerValue = std::variant<std::monostate, std::string, std::int64_t, double>;

struct AnswerRow {
  std::vector<AnswerValue> values;  // as many as columns
  bool is_least = false;            // what it has of the ranking column may be more
  std::vector<double> line;         // of the column that is one, or of the answer's steps
};

struct AnswerGap {
  TimeSpan span;
  std::string reason;
};

struct AnswerLoss {
  std::string exporter;  // empty for a socket's
  std::string place;     // way, here, refused, left_out
  std::string reason;
  std::int64_t count = 0;
  std::string unit;
  TimeSpan span;
  std::optional<double> share;  // of the exporter's traffic
};

// Steps of time, where rows have a line with a value for each.
struct AnswerSteps {
  std::int64_t from = 0;
  std::int64_t seconds = 0;  // of each
  std::vector<double> lost;  // of any exporter, on the way and here
};

struct Answer {
  std::string what;
  std::optional<TimeSpan> span;
  std::string beside;  // the other time, where two are compared
  std::string source;  // what it was made from: "the hours' totals"
  bool is_exact = true;
  std::vector<AnswerColumn> columns;
  std::vector<AnswerRow> rows;
  std::optional<AnswerRow> others;  // so that a column adds up
  std::string others_text;          // "18,211 more"
  std::optional<AnswerRow> total;
  std::vector<AnswerGap> gaps;
  std::vector<AnswerLoss> losses;
  std::optional<AnswerSteps> steps;
  std::vector<std::string> notes;  // whole sentences
};

}  // namespace flow::host
