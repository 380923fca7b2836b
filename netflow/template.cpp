// SPDX-License-Identifier: Apache-2.0
#include "netflow/template.h"

#include <utility>

#include "metering/flow_record.h"
#include "netflow/exact_times.h"
#include "netflow/export_formats.h"

namespace flow {

Template::Template(std::vector<nf9_field_t> fields) : fields_(std::move(fields)) {
  fields_.shrink_to_fit();
  rows_.reserve(fields_.size());
  for (const nf9_field_t& field : fields_) {
    const std::uint16_t row = RowOf(field.type);
    rows_.push_back(row);
    carries_direction_ =
        carries_direction_ || PlaceAt(row).offset == offsetof(FlowRecord, direction);
    has_times_ = has_times_ || IsExactTime(field.type);
  }
  runs_ = MakeRuns();
  has_plan_ = runs_.size() == 1 && runs_[0].end == fields_.size();
  if (!has_plan_) return;
  whole_ = std::move(runs_[0]);
  runs_ = {};
}

std::vector<Template::Run> Template::MakeRuns() const {
  std::vector<Run> runs;
  std::vector<RecordPlan::Field> planned;
  Run run;
  const auto end_run = [&](std::size_t end) {
    run.end = static_cast<std::uint32_t>(end);
    run.plan = RecordPlan(planned);
    run.times.shrink_to_fit();
    runs.push_back(std::exchange(run, {}));
    run.first = static_cast<std::uint32_t>(end + 1);
    planned.clear();
  };
  for (std::size_t i = 0; i < fields_.size(); ++i) {
    const auto [type, length] = fields_[i];
    if (length == kVariableLength) {
      if (runs.size() == kMostRuns) return {};
      end_run(i);
      continue;
    }
    if (run.length + length >= kVariableLength) return {};
    planned.push_back({run.length, static_cast<std::uint16_t>(length), rows_[i]});
    if (IsExactTime(type)) run.times.push_back({run.length, planned.back().length, type});
    run.length = static_cast<std::uint16_t>(run.length + length);
  }
  if (!planned.empty() || runs.empty()) end_run(fields_.size());
  runs.shrink_to_fit();
  return runs;
}

}  // namespace flow
