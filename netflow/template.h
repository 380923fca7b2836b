// A template: the fields of a data record, and the plan that is made of them when it is learnt.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "netflow/elements.h"
#include "netflow/record_plan.h"

// One field specifier, in template order.
struct nf9_field_t {
  std::uint32_t type;    // element id as received, the enterprise bit included; or a scope type
  std::uint32_t length;  // in bytes; 65535: variable
};

namespace flow {

class Template {
 public:
  Template() = default;
  explicit Template(std::vector<nf9_field_t> fields);

  [[nodiscard]] const std::vector<nf9_field_t>& Fields() const noexcept { return fields_; }

  // PlaceOfField says where the value of field i goes.
  [[nodiscard]] const FieldPlace& PlaceOfField(std::size_t i) const noexcept {
    return PlaceAt(rows_[i]);
  }

  // HasPlan tells whether all records have one length, and no more than fits a set: then a record
  // of RecordLength bytes is decoded by the plan alone.
  [[nodiscard]] bool HasPlan() const noexcept { return has_plan_; }
  [[nodiscard]] std::uint32_t RecordLength() const noexcept { return record_length_; }
  [[nodiscard]] const RecordPlan& Plan() const noexcept { return plan_; }

  // The fields with absolute times, where they lie in a record that has a plan.
  struct TimeField {
    std::uint16_t offset;
    std::uint16_t length;
    std::uint32_t type;
  };
  [[nodiscard]] const std::vector<TimeField>& TimeFields() const noexcept { return times_; }

  // HasTimes tells whether there are any, in a record without a plan too.
  [[nodiscard]] bool HasTimes() const noexcept { return has_times_; }

  // CarriesDirection tells whether its records say if they are ingress or egress.
  [[nodiscard]] bool CarriesDirection() const noexcept { return carries_direction_; }

 private:
  // What a record needs comes first, in as few cache lines as possible.
  RecordPlan plan_;
  std::uint32_t record_length_ = 0;
  bool has_plan_ = false;
  bool carries_direction_ = false;
  bool has_times_ = false;
  std::vector<nf9_field_t> fields_;
  std::vector<TimeField> times_;
  std::vector<std::uint16_t> rows_;  // of the fields' elements
};

}  // namespace flow
