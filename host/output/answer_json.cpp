// SPDX-License-Identifier: Apache-2.0
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <variant>
#include <vector>

#include "host/output/answer_forms.h"
#include "host/output/json_texts.h"

namespace flow::host {
namespace {

using Json = nlohmann::ordered_json;

Json ValueJson(const AnswerValue& value) {
  return std::visit(
      [](const auto& known) -> Json {
        if constexpr (std::is_same_v<std::decay_t<decltype(known)>, std::monostate>) {
          return nullptr;
        } else {
          return known;
        }
      },
      value);
}

// Lines are sums of whole numbers.
Json LineJson(const std::vector<double>& line) {
  Json values = Json::array();
  for (const double value : line) values.push_back(std::llround(value));
  return values;
}

// Drawings are left out, and texts beside a key that are empty.
Json RowJson(const Answer& answer, const AnswerRow& row) {
  Json object;
  // A row is named by one text, also where its key has several fields.
  std::string key;
  for (std::size_t i = 0; i < row.values.size(); ++i) {
    const auto* const text = std::get_if<std::string>(&row.values[i]);
    if (answer.columns[i].kind != ValueKind::kKey || text == nullptr || text->empty()) continue;
    key += (key.empty() ? "" : " ") + *text;
  }
  if (!key.empty()) object["key"] = key;
  for (std::size_t i = 0; i < row.values.size(); ++i) {
    const AnswerColumn& column = answer.columns[i];
    const auto* const text = std::get_if<std::string>(&row.values[i]);
    if (column.kind == ValueKind::kLine || column.kind == ValueKind::kBar) continue;
    if (column.kind == ValueKind::kText && (text == nullptr || text->empty())) continue;
    object[column.id] = ValueJson(row.values[i]);
  }
  if (row.is_least) object["at_least"] = true;
  if (answer.steps && !row.line.empty()) object["line"] = LineJson(row.line);
  return object;
}

Json SpanJson(const TimeSpan& span) { return {{"from", span.from}, {"to", span.to}}; }

Json LossJson(const AnswerLoss& loss) {
  Json object{{"exporter", loss.exporter}, {"place", loss.place}, {"reason", loss.reason},
              {"count", loss.count},       {"unit", loss.unit},   {"from", loss.span.from},
              {"to", loss.span.to}};
  if (loss.share) object["share"] = *loss.share;
  return object;
}

}  // namespace

// Times are seconds since 1970, but for those of flows, which are milliseconds.
std::string JsonText(const Answer& answer, const AnswerView& view) {
  Json root{{"what", answer.what}};
  if (answer.span) {
    root.update(SpanJson(*answer.span));
    root["span"] = SpanText(*answer.span, view.zone);
  }
  if (!answer.beside.empty()) root["beside"] = answer.beside;
  root["source"] = answer.source;
  root["exact"] = answer.is_exact;
  if (answer.steps) {
    root["steps"] = {{"from", answer.steps->from},
                     {"seconds", answer.steps->seconds},
                     {"lost", LineJson(answer.steps->lost)}};
  }
  root["rows"] = Json::array();
  for (const AnswerRow& row : answer.rows) root["rows"].push_back(RowJson(answer, row));
  if (answer.others) root["rows"].push_back(RowJson(answer, *answer.others));
  if (answer.total) root["total"] = RowJson(answer, *answer.total);
  root["gaps"] = Json::array();
  for (const AnswerGap& gap : answer.gaps) {
    root["gaps"].push_back(SpanJson(gap.span));
    root["gaps"].back()["reason"] = gap.reason;
  }
  root["losses"] = Json::array();
  for (const AnswerLoss& loss : answer.losses) root["losses"].push_back(LossJson(loss));
  if (!answer.notes.empty()) root["notes"] = answer.notes;
  // Texts from the wire may be no UTF-8 at all.
  MakeUtf8(&root);
  return root.dump(1) + '\n';
}

void PrintJson(const Answer& answer, const AnswerView& view, std::FILE* out) {
  fmt::print(out, "{}", JsonText(answer, view));
}

}  // namespace flow::host
