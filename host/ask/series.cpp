// SPDX-License-Identifier: Apache-2.0
#include "host/ask/series.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "host/ask/flow_source.h"
#include "host/ask/flows.h"
#include "host/ask/steps.h"
#include "host/ask/top.h"

namespace flow::host {
namespace {

struct Step {
  std::int64_t bytes = 0;
  std::int64_t packets = 0;
  std::int64_t all_bytes = 0;
  std::int64_t all_packets = 0;
  std::int64_t ran = 0;  // seconds
  bool is_least = false;
};

class Series {
 public:
  Series(StoredCounters* counters, const SeriesQuestion& question, const TimeSpan& asked)
      : counters_(counters), question_(question) {
    plan_ = StepsOf(counters, asked, question.step, &answer_.notes);
    steps_.resize(plan_.count);
  }

  Answer Make() {
    Coverage(counters_, plan_.cover, &answer_);
    answer_.what = question_.what;
    ReadTraffic();
    if (question_.filter) {
      ReadFlows();
    } else if (!question_.group.empty()) {
      ReadKey();
    } else {
      for (Step& step : steps_) {
        step.bytes = step.all_bytes;
        step.packets = step.all_packets;
      }
    }
    AddRows();
    return std::move(answer_);
  }

 private:
  Step& StepAt(std::int64_t time) { return steps_[plan_.At(time)]; }

  void ReadTraffic() {
    for (const TierPart& part : plan_.cover.parts) {
      const auto rows = counters_->Ask(
          "SELECT bucket, bytes, packets, ran FROM buckets "
          "WHERE tier = ? AND bucket >= ? AND bucket < ?",
          {std::string(kTiers[part.tier].name), part.span.from, part.span.to});
      while (rows->Step()) {
        Step& step = StepAt(rows->Integer(0));
        step.all_bytes += rows->Integer(1);
        step.all_packets += rows->Integer(2);
        step.ran += rows->Integer(3);
      }
    }
  }

  // A bucket in which the key is not among the largest may have had some of it.
  void ReadKey() {
    const std::vector<StoredGroup> groups = counters_->Groups(question_.group);
    bool has_any = false;
    for (const StoredGroup& group : groups) {
      const std::size_t at = question_.by_packets ? ColumnOf(group, "packets") : 0;
      counts_packets_ |= std::ranges::find(group.columns, "packets", &StoredGroup::Column::name) !=
                         group.columns.end();
      const bool has_packets = counts_packets_;
      for (const TierPart& part : plan_.cover.parts) {
        const auto rows = counters_->Ask(
            fmt::format("SELECT bucket, key, bytes, {}, {}, bound FROM {} "
                        "WHERE bucket >= ? AND bucket < ? AND key IN (?, ?) ORDER BY bucket",
                        has_packets ? "packets" : "0", Identifier(group.columns[at].name),
                        counters_->GroupTable(group, part)),
            {part.span.from, part.span.to, question_.key, std::string(kOthersKey)});
        has_any |= TakeBuckets(rows.get());
      }
    }
    if (!has_any) {
      answer_.notes.push_back(
          fmt::format("'{}' is not among the largest of any bucket", question_.key));
    }
  }

  bool TakeBuckets(SourceRows* rows) {
    bool has_any = false;
    std::int64_t bucket = -1;
    bool has_key = false;
    bool has_others = false;
    const auto end = [&] {
      if (bucket >= 0 && has_others && !has_key) StepAt(bucket).is_least = true;
    };
    while (rows->Step()) {
      if (rows->Integer(0) != bucket) {
        end();
        bucket = rows->Integer(0);
        has_key = has_others = false;
      }
      if (rows->Text(1) == kOthersKey) {
        has_others |= rows->Integer(4) > 0;
        continue;
      }
      Step& step = StepAt(bucket);
      step.bytes += rows->Integer(2);
      step.packets += rows->Integer(3);
      step.is_least |= rows->Integer(5) > 0;
      has_any = has_key = true;
    }
    end();
    return has_any;
  }

  void ReadFlows() {
    const FlowSteps sums = counters_->flows().AddUpSteps(*question_.filter, plan_);
    Answer covered;
    FlowCoverage(counters_, plan_.cover, sums.scan, &covered);
    covered.what = std::move(answer_.what);
    answer_ = std::move(covered);
    for (std::size_t i = 0; i < steps_.size(); ++i) {
      steps_[i].bytes = static_cast<std::int64_t>(sums.steps[i].bytes);
      steps_[i].packets = static_cast<std::int64_t>(sums.steps[i].packets);
    }
    counts_packets_ = true;
  }

  void AddRows() {
    const bool is_all = question_.group.empty() && !question_.filter;
    answer_.columns = {{"time_ms", "Time", ValueKind::kTime}};
    const AnswerColumn bytes{"bytes", "Bytes", ValueKind::kBytes};
    const AnswerColumn bits{"bits_per_second", "Rate", ValueKind::kBitRate};
    const AnswerColumn packets{"packets", "Packets", ValueKind::kPackets};
    const AnswerColumn rate{"packets_per_second", "Packets/s", ValueKind::kPacketRate};
    auto& columns = answer_.columns;
    if (question_.by_packets) {
      columns.insert(columns.end(), {packets, rate, bytes, bits});
    } else {
      columns.insert(columns.end(), {bytes, bits, packets, rate});
    }
    columns.push_back({"share", "Share", is_all ? ValueKind::kText : ValueKind::kShare});
    columns.push_back({"bar", "", ValueKind::kBar});
    std::int64_t most = 1;
    Step sum;
    for (const Step& step : steps_) {
      most = std::max(most, RankOf(step));
      sum.bytes += step.bytes;
      sum.packets += step.packets;
      sum.all_bytes += step.all_bytes;
      sum.all_packets += step.all_packets;
      sum.ran += step.ran;
      answer_.is_exact &= !step.is_least;
    }
    for (std::size_t i = 0; i < steps_.size(); ++i) {
      const std::int64_t time =
          plan_.cover.span.from + static_cast<std::int64_t>(i) * plan_.seconds;
      AnswerRow row = Row(steps_[i], plan_.seconds);
      row.values[0] = time * 1000;
      row.values.back() = static_cast<double>(RankOf(steps_[i])) / static_cast<double>(most);
      row.is_least = steps_[i].is_least;
      answer_.rows.push_back(std::move(row));
    }
    answer_.total = Row(sum, plan_.cover.span.Seconds());
    answer_.total->values[0] = std::string("all");
  }

  [[nodiscard]] std::int64_t RankOf(const Step& step) const {
    return question_.by_packets ? step.packets : step.bytes;
  }

  // Of a step in which nobody listened nothing is known.
  [[nodiscard]] AnswerRow Row(const Step& step, std::int64_t seconds) const {
    AnswerRow row;
    row.values.resize(answer_.columns.size());
    if (step.ran == 0 && step.all_bytes == 0) return row;
    const std::size_t bytes = question_.by_packets ? 3 : 1;
    const std::size_t packets = question_.by_packets ? 1 : 3;
    row.values[bytes] = step.bytes;
    row.values[bytes + 1] = static_cast<double>(step.bytes) * 8 / static_cast<double>(seconds);
    if (counts_packets_ || question_.group.empty()) {
      row.values[packets] = step.packets;
      row.values[packets + 1] = static_cast<double>(step.packets) / static_cast<double>(seconds);
    }
    const std::int64_t all = question_.by_packets ? step.all_packets : step.all_bytes;
    const bool is_part = !question_.group.empty() || question_.filter;
    if (is_part && all > 0) {
      row.values[5] = static_cast<double>(RankOf(step)) / static_cast<double>(all);
    }
    return row;
  }

  StoredCounters* counters_;
  const SeriesQuestion& question_;
  Steps plan_;
  std::vector<Step> steps_;
  bool counts_packets_ = false;
  Answer answer_;
};

}  // namespace

Answer AskSeries(StoredCounters* counters, const SeriesQuestion& question, const TimeSpan& span) {
  return Series(counters, question, span).Make();
}

}  // namespace flow::host
