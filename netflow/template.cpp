#include "netflow/template.h"

#include <utility>

#include "netflow/export_formats.h"

namespace flow {

Template::Template(std::vector<nf9_field_t> fields) : fields_(std::move(fields)) {
  fields_.shrink_to_fit();
  decodes_.reserve(fields_.size());
  RecordPlan plan;
  std::uint64_t length = 0;
  has_plan_ = true;
  for (const nf9_field_t& field : fields_) {
    const Decode decode = DecodeOf(field.type);
    decodes_.push_back(decode);
    carries_direction_ = carries_direction_ || decode == Decode::kDirection;
    has_plan_ =
        has_plan_ && field.length != kVariableLength && length + field.length < kVariableLength;
    if (!has_plan_) continue;
    if (decode != Decode::kSkip) {
      plan.Add(static_cast<std::uint16_t>(length), static_cast<std::uint16_t>(field.length),
               decode);
    }
    length += field.length;
  }
  record_length_ = static_cast<std::uint32_t>(length);
  if (!has_plan_) return;
  plan.Finish();
  plan_ = std::move(plan);
}

}  // namespace flow
