// SPDX-License-Identifier: Apache-2.0
#include "host/ask/flows.h"

#include <fmt/format.h>

#include <algorithm>
#include <span>
#include <utility>

#include "host/ask/flow_groups.h"
#include "host/ask/steps.h"
#include "host/ask/top.h"
#include "host/base/error.h"
#include "host/base/number_text.h"
#include "host/base/words.h"

namespace flow::host {
namespace {

constexpr std::pair<std::string_view, FlowOrder> kOrders[] = {
    {"bytes", FlowOrder::kBytes}, {"packets", FlowOrder::kPackets},
    {"flows", FlowOrder::kFlows}, {"duration", FlowOrder::kDuration},
    {"first", FlowOrder::kFirst}, {"last", FlowOrder::kLast},
};

// The columns of sums: what the answer is ordered by stands first, with its share of all.
class SumColumns {
 public:
  SumColumns(FlowOrder order, const Cover& cover, const FlowAmounts& total)
      : order_(order),
        seconds_(static_cast<double>(std::max<std::int64_t>(cover.span.Seconds(), 1))) {
    all_ = order == FlowOrder::kPackets ? static_cast<double>(cover.packets)
           : order == FlowOrder::kFlows ? static_cast<double>(total.flows)
                                        : static_cast<double>(cover.bytes);
  }

  void AddColumns(std::vector<AnswerColumn>* columns) const {
    columns->push_back({"share", "Share", ValueKind::kShare});
    const AnswerColumn bytes{"bytes", "Bytes", ValueKind::kBytes};
    const AnswerColumn packets{"packets", "Packets", ValueKind::kPackets};
    const AnswerColumn flows{"flows", "Flows", ValueKind::kCount};
    const AnswerColumn bits{"bits_per_second", "Rate", ValueKind::kBitRate};
    const AnswerColumn rate{"packets_per_second", "Packets/s", ValueKind::kPacketRate};
    if (order_ == FlowOrder::kPackets) {
      columns->insert(columns->end(), {packets, rate, bytes, bits, flows});
    } else if (order_ == FlowOrder::kFlows) {
      columns->insert(columns->end(), {flows, bytes, bits, packets, rate});
    } else {
      columns->insert(columns->end(), {bytes, bits, packets, rate, flows});
    }
  }

  // Rates are over the span, those of a single flow over its own time.
  void AddValues(const FlowAmounts& sums, std::vector<AnswerValue>* values,
                 std::int64_t flow_ms = 0) const {
    const double seconds = flow_ms > 0 ? static_cast<double>(flow_ms) / 1000 : seconds_;
    const auto bytes = static_cast<double>(sums.bytes);
    const auto packets = static_cast<double>(sums.packets);
    const double ranked = order_ == FlowOrder::kPackets ? packets
                          : order_ == FlowOrder::kFlows ? static_cast<double>(sums.flows)
                                                        : bytes;
    values->emplace_back();
    if (all_ > 0) values->back() = ranked / all_;
    const AnswerValue whole_bytes = static_cast<std::int64_t>(sums.bytes);
    const AnswerValue whole_packets = static_cast<std::int64_t>(sums.packets);
    const AnswerValue flows = static_cast<std::int64_t>(sums.flows);
    const AnswerValue bits = bytes * 8 / seconds;
    const AnswerValue rate = packets / seconds;
    if (order_ == FlowOrder::kPackets) {
      values->insert(values->end(), {whole_packets, rate, whole_bytes, bits, flows});
    } else if (order_ == FlowOrder::kFlows) {
      values->insert(values->end(), {flows, whole_bytes, bits, whole_packets, rate});
    } else {
      values->insert(values->end(), {whole_bytes, bits, whole_packets, rate, flows});
    }
  }

 private:
  FlowOrder order_;
  double seconds_;
  double all_ = 0;
};

FlowAmounts Without(FlowAmounts from, const FlowAmounts& part) {
  from.bytes -= part.bytes;
  from.packets -= part.packets;
  from.flows -= part.flows;
  return from;
}

void Sum(const FlowAmounts& part, FlowAmounts* into) {
  into->bytes += part.bytes;
  into->packets += part.packets;
  into->flows += part.flows;
}

void AddKeyColumns(const std::vector<const FlowField*>& fields, Answer* answer) {
  for (const FlowField* const field : fields) {
    answer->columns.push_back(
        {std::string(field->name), std::string(field->title), ValueKind::kKey});
    answer->columns.push_back({fmt::format("{}_name", field->name), "", ValueKind::kText});
  }
}

std::vector<AnswerValue> KeyValues(const std::vector<const FlowField*>& fields,
                                   const std::vector<std::string>& texts, const KeyNames& names) {
  std::vector<AnswerValue> values;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    values.emplace_back(texts[i]);
    values.emplace_back(FieldName(*fields[i], texts[i], names));
  }
  return values;
}

// A row that is no key's: the others, or all. Its text stands in the place of a field.
AnswerRow SumRow(std::size_t fields, std::string text, std::size_t field = 0) {
  AnswerRow row;
  row.values.resize(fields * 2);
  for (AnswerValue& value : row.values) value = std::string();
  row.values[field * 2] = std::move(text);
  return row;
}

// Puts columns in front, in this order: a narrow terminal shows the first ones.
void PutInFront(std::span<const std::string_view> ids, Answer* answer) {
  std::vector<std::size_t> order;
  for (const std::string_view id : ids) {
    const auto found = std::ranges::find(answer->columns, id, &AnswerColumn::id);
    order.push_back(static_cast<std::size_t>(found - answer->columns.begin()));
  }
  for (std::size_t i = 0; i < answer->columns.size(); ++i) {
    if (std::ranges::find(order, i) == order.end()) order.push_back(i);
  }
  const auto arrange = [&order](auto* list) {
    auto arranged = *list;
    for (std::size_t i = 0; i < order.size(); ++i) arranged[i] = (*list)[order[i]];
    *list = std::move(arranged);
  };
  arrange(&answer->columns);
  for (AnswerRow& row : answer->rows) arrange(&row.values);
  if (answer->others) arrange(&answer->others->values);
  if (answer->total) arrange(&answer->total->values);
}

void AddLines(StoredCounters* counters, const FlowsQuestion& question, const TimeSpan& span,
              const std::vector<std::string>& keys, Answer* answer) {
  const Steps steps = StepsOf(counters, span, question.step, &answer->notes);
  DescribeSteps(counters, steps, answer);
  const FlowSelection selection{question.filter, steps.cover.span, question.fields};
  auto lines = counters->flows().Lines(selection, steps, question.order, keys);
  Line& groups = lines[keys.size()];
  for (std::size_t i = 0; i < keys.size(); ++i) {
    std::ranges::transform(groups, lines[i], groups.begin(), std::minus());
    answer->rows[i].line = std::move(lines[i]);
  }
  if (answer->others) answer->others->line = std::move(groups);
  answer->total->line = std::move(lines.back());
}

Answer Grouped(StoredCounters* counters, const FlowsQuestion& question, const TimeSpan& span,
               const KeyNames& names) {
  const Cover cover = counters->CoverOf(span, kMinuteSeconds);
  const RankedGroups groups = counters->flows().Rank({question.filter, cover.span, question.fields},
                                                     question.order, question.top, std::nullopt);
  Answer answer;
  FlowCoverage(counters, cover, groups.scan, &answer);
  AddKeyColumns(question.fields, &answer);
  const SumColumns columns(question.order, cover, groups.total);
  columns.AddColumns(&answer.columns);
  FlowAmounts shown{};
  std::vector<std::string> keys;
  for (const RankedGroups::Group& group : groups.first) {
    AnswerRow row;
    row.values = KeyValues(question.fields, FieldTexts(question.fields, group.key), names);
    columns.AddValues(group.sums, &row.values);
    Sum(group.sums, &shown);
    keys.push_back(group.key);
    answer.rows.push_back(std::move(row));
  }
  if (groups.count > answer.rows.size()) {
    answer.others = SumRow(question.fields.size(), std::string(kOthersKey));
    answer.others_text = fmt::format("{} more", Thousands(groups.count - answer.rows.size()));
    columns.AddValues(Without(groups.all, shown), &answer.others->values);
  }
  answer.total = SumRow(question.fields.size(), "all that match");
  columns.AddValues(groups.total, &answer.total->values);
  if (question.step != 0) AddLines(counters, question, span, keys, &answer);
  return answer;
}

Answer Listed(StoredCounters* counters, const FlowsQuestion& question, const TimeSpan& span,
              const KeyNames& names) {
  const Cover cover = counters->CoverOf(span, kMinuteSeconds);
  const FlowList list =
      counters->flows().List(question.filter, cover.span, question.order, question.top);
  Answer answer;
  FlowCoverage(counters, cover, list.scan, &answer);
  answer.columns = {{"first_ms", "Began", ValueKind::kTime},
                    {"duration_ms", "Lasted", ValueKind::kDuration}};
  AddKeyColumns(ListedFields(), &answer);
  const SumColumns columns(question.order, cover, list.total);
  columns.AddColumns(&answer.columns);
  FlowAmounts shown{};
  for (const ListedFlow& flow : list.flows) {
    AnswerRow row;
    row.values = {flow.first_ms, flow.last_ms - flow.first_ms};
    for (AnswerValue& value : KeyValues(ListedFields(), flow.fields, names)) {
      row.values.push_back(std::move(value));
    }
    const FlowAmounts sums{static_cast<std::uint64_t>(flow.bytes),
                           static_cast<std::uint64_t>(flow.packets),
                           static_cast<std::uint64_t>(flow.flows), 0, 0};
    columns.AddValues(sums, &row.values, flow.last_ms - flow.first_ms);
    Sum(sums, &shown);
    answer.rows.push_back(std::move(row));
  }
  const auto add_sums = [&](std::string text, const FlowAmounts& sums) {
    constexpr std::size_t kSource = 1;
    AnswerRow row = SumRow(ListedFields().size(), std::move(text), kSource);
    row.values.insert(row.values.begin(), 2, AnswerValue());
    columns.AddValues(sums, &row.values);
    return row;
  };
  if (list.count > list.flows.size()) {
    answer.others = add_sums(std::string(kOthersKey), Without(list.total, shown));
    answer.others_text = fmt::format("{} more", Thousands(list.count - list.flows.size()));
  }
  if (list.count > 0) answer.total = add_sums("all that match", list.total);
  constexpr std::string_view kInFront[] = {
      "first_ms", "duration_ms", "bytes", "bits_per_second", "proto", "src",        "src_name",
      "sport",    "sport_name",  "dst",   "dst_name",        "dport", "dport_name", "packets"};
  PutInFront(kInFront, &answer);
  return answer;
}

}  // namespace

FlowOrder ParseFlowOrder(const std::string& text) {
  for (const auto& [name, order] : kOrders) {
    if (SameWord(name, text)) return order;
  }
  throw UsageError(fmt::format(
      "flows are ordered by bytes, packets, flows, duration, first or last, not by '{}'", text));
}

void FlowCoverage(StoredCounters* counters, const Cover& cover, const ScanResult& scan,
                  Answer* answer) {
  Coverage(counters, cover, answer);
  answer->source = "flows";
  for (const TimeSpan& missing : scan.missing) {
    const bool is_told = std::ranges::any_of(cover.gaps, [&](const AnswerGap& gap) {
      return gap.span.from <= missing.from && missing.to <= gap.span.to;
    });
    if (!is_told) answer->gaps.push_back({missing, "no flows are kept of it"});
  }
  if (scan.rows_alone) {
    answer->notes.emplace_back(
        "too many flows to bring together what each had minute by minute: its parts stand alone");
  }
  answer->is_exact = scan.not_kept.flows == 0;
  if (!answer->is_exact) {
    const auto bytes = static_cast<std::uint64_t>(scan.not_kept.bytes);
    answer->notes.push_back(fmt::format("{} flows{} could not be kept and are not in it",
                                        Thousands(static_cast<std::uint64_t>(scan.not_kept.flows)),
                                        bytes == 0 ? "" : " with " + SiBytes(bytes)));
  }
}

Answer AskFlows(StoredCounters* counters, const FlowsQuestion& question, const TimeSpan& span,
                const KeyNames& names) {
  Answer answer = question.fields.empty() ? Listed(counters, question, span, names)
                                          : Grouped(counters, question, span, names);
  answer.what = question.filter_text.empty() ? "flows" : "flows of " + question.filter_text;
  if (answer.rows.empty() && answer.notes.empty()) answer.notes.emplace_back("nothing matches");
  return answer;
}

}  // namespace flow::host
