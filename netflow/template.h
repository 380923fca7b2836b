// SPDX-License-Identifier: Apache-2.0
// A template: the fields of a data record, and the plan that is made of them when it is learnt.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
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

  // A field with an absolute time, where it lies in its run.
  struct TimeField {
    std::uint16_t offset;
    std::uint16_t length;
    std::uint32_t type;
  };

  // Fields of fixed length in a row, from field `first` up to `end`, and how they are decoded.
  struct Run {
    RecordPlan plan;
    std::uint16_t length = 0;  // of all of them
    std::uint32_t first = 0;
    std::uint32_t end = 0;
    std::vector<TimeField> times;
  };

  // HasPlan tells whether all records have one length, and no more than fits a set: then a record
  // of Whole().length bytes is decoded by the plan alone.
  [[nodiscard]] bool HasPlan() const noexcept { return has_plan_; }
  [[nodiscard]] const Run& Whole() const noexcept { return whole_; }

  // Runs are what the fields of variable length leave between them: each run ends at such a field,
  // or with the template. None when there is a plan, a run is longer than any set, or they would be
  // so many that a template took far more memory than it has on the wire.
  static constexpr std::size_t kMostRuns = 16;
  [[nodiscard]] std::span<const Run> Runs() const noexcept { return runs_; }

  // HasTimes tells whether there are any, in a record without a plan too.
  [[nodiscard]] bool HasTimes() const noexcept { return has_times_; }

  // CarriesDirection tells whether its records say if they are ingress or egress.
  [[nodiscard]] bool CarriesDirection() const noexcept { return carries_direction_; }

 private:
  [[nodiscard]] std::vector<Run> MakeRuns() const;

  // What a record needs comes first, in as few cache lines as possible.
  Run whole_;
  bool has_plan_ = false;
  bool carries_direction_ = false;
  bool has_times_ = false;
  std::vector<nf9_field_t> fields_;
  std::vector<Run> runs_;
  std::vector<std::uint16_t> rows_;  // of the fields' elements
};

}  // namespace flow
