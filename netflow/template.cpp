#include "netflow/template.h"

#include <utility>

#include "netflow/data_record.h"
#include "netflow/exact_times.h"
#include "netflow/export_formats.h"

namespace flow {

Template::Template(std::vector<nf9_field_t> fields) : fields_(std::move(fields)) {
  fields_.shrink_to_fit();
  rows_.reserve(fields_.size());
  std::vector<RecordPlan::Field> planned;
  std::uint64_t length = 0;
  has_plan_ = true;
  for (const nf9_field_t& field : fields_) {
    const std::uint16_t row = RowOf(field.type);
    rows_.push_back(row);
    carries_direction_ =
        carries_direction_ || PlaceAt(row).offset == offsetof(nf9_record, direction);
    has_times_ = has_times_ || IsExactTime(field.type);
    has_plan_ =
        has_plan_ && field.length != kVariableLength && length + field.length < kVariableLength;
    if (!has_plan_) continue;
    planned.push_back(
        {static_cast<std::uint16_t>(length), static_cast<std::uint16_t>(field.length), row});
    if (IsExactTime(field.type)) {
      times_.push_back({static_cast<std::uint16_t>(length),
                        static_cast<std::uint16_t>(field.length), field.type});
    }
    length += field.length;
  }
  times_.shrink_to_fit();
  record_length_ = static_cast<std::uint32_t>(length);
  if (has_plan_) plan_ = RecordPlan(planned);
}

}  // namespace flow
