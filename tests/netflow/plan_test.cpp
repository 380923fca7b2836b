// SPDX-License-Identifier: Apache-2.0
// The plans that are made of a template, and the walk from field to field that they stand for: both
// give the same calls.

#include <gtest/gtest.h>

#include <random>

#include "netflow/elements.h"
#include "netflow/template.h"
#include "tests/netflow/plan_check.h"

namespace flow::test {
namespace {

std::vector<nf9_field_t> Specifiers(const Fields& fields) {
  std::vector<nf9_field_t> list;
  for (const Field& field : fields) list.push_back({field.type, field.length});
  return list;
}

TEST(TemplatePlan, IsCutAtFieldsOfVariableLength) {
  const struct {
    const char* name;
    Fields fields;
    bool has_plan;
    std::size_t length;  // of the first run
    std::size_t runs;
  } cases[] = {
      {"NoFields", {}, true, 0, 0},
      {"Fixed", {{8, 4}, {999, 3}, {12, 4}}, true, 11, 0},
      {"Variable", {{8, 4}, {83, kVariableLength}}, false, 4, 1},
      {"Between", {{83, kVariableLength}, {8, 4}, {83, kVariableLength}, {12, 4}}, false, 0, 3},
      {"Longest", {{8, 65530}, {12, 4}}, true, 65534, 0},
      {"LongerThanAnySet", {{8, 65530}, {12, 5}}, false, 0, 0},
      {"ManyLongFields", Fields(70000, {8, 65534}), false, 0, 0},
      {"AsManyAsRuns", Fields(flow::Template::kMostRuns, {83, kVariableLength}), false, 0, 16},
      {"TooMany", Fields(flow::Template::kMostRuns + 1, {83, kVariableLength}), false, 0, 0},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    const flow::Template fields(Specifiers(row.fields));
    ASSERT_EQ(fields.HasPlan(), row.has_plan);
    EXPECT_EQ(fields.Runs().size(), row.runs);
    const auto& first = row.runs == 0 ? fields.Whole() : fields.Runs()[0];
    EXPECT_EQ(first.length, row.length);
  }
}

class Generator {
 public:
  Generator(unsigned int seed, bool has_variable) : random_(seed), has_variable_(has_variable) {
    for (const Element& element : Elements()) {
      if (element.place.kind == FieldKind::kSkipped) continue;
      decoded_.push_back(static_cast<std::uint16_t>(element.id));
    }
  }

  PlanCase Next() {
    PlanCase test;
    test.fields = {{8, 4}, {12, 4}, {4, 1}, {1, 4}, {2, 4}};
    for (std::size_t i = Below(12); i > 0; --i) {
      const auto at = static_cast<std::ptrdiff_t>(Below(test.fields.size() + 1));
      test.fields.insert(test.fields.begin() + at, RandomField());
    }
    for (std::size_t i = 1 + Below(6); i > 0; --i) test.records.push_back(Record(test.fields));
    // An ingress flow and its egress differ in one byte.
    if (Below(4) == 0) test.records.push_back(test.records.front());
    if (Below(2) == 0) test.cut = Below(test.records.back().size());
    return test;
  }

 private:
  std::size_t Below(std::size_t limit) { return random_() % limit; }

  Field RandomField() {
    static constexpr std::uint16_t kOddLengths[] = {0, 1, 2, 3, 4, 5, 8, 16, 17, 32, 64, 130};
    const std::uint16_t id =
        Below(8) == 0 ? static_cast<std::uint16_t>(Below(65536)) : decoded_[Below(decoded_.size())];
    const int normal = GetDefaultLengthForAttribute(id);
    if (has_variable_ && Below(4) == 0) return {id, kVariableLength};
    const bool is_odd = normal < 0 || normal == kVariableLength || Below(4) == 0;
    return {id, is_odd ? kOddLengths[Below(std::size(kOddLengths))]
                       : static_cast<std::uint16_t>(normal)};
  }

  // A record of zeros, letters and any bytes, and of what elements ask for.
  Bytes Record(const Fields& fields) {
    Wire record;
    for (Field field : fields) {
      const std::size_t kind = Below(4);
      if (field.length == kVariableLength) {
        field.length = static_cast<std::uint16_t>(Below(20));
        record.U8(static_cast<std::uint8_t>(field.length));
      }
      if (field.type == 61 || field.type == 60) {
        record.Number(field.length, field.type == 61 ? Below(3) : 4 + 2 * Below(2));
      } else if (field.type == 346 && kind != 0) {
        record.Number(field.length, 25461);
      } else {
        for (std::size_t i = 0; i < field.length; ++i) {
          record.Number(1, kind == 0 ? 0 : kind == 1 ? 'a' + Below(26) : random_());
        }
      }
    }
    return record.Get();
  }

  std::mt19937 random_;
  bool has_variable_;
  std::vector<std::uint16_t> decoded_;
};

TEST(TemplatePlan, SameCallsAsFieldByField) {
  constexpr std::string_view kPolicies[] = {
      "",
      "<MeterBothPorts>false</MeterBothPorts><MergeMultipleSources>false</MergeMultipleSources>",
      "<MeterZeroFlows>true</MeterZeroFlows><IgnoreOutCounts>true</IgnoreOutCounts>"
      "<UsePostNATAddresses>false</UsePostNATAddresses>"};
  for (const bool has_variable : {false, true}) {
    Generator generator(20240611, has_variable);
    std::size_t calls = 0;
    for (std::size_t i = 0; i < 300; ++i) {
      SCOPED_TRACE(i);
      const PlanCase test = generator.Next();
      const flow::Template fields(Specifiers(test.fields));
      ASSERT_TRUE(fields.HasPlan() || (has_variable && !fields.Runs().empty()));
      const BothWays both = CallsOfBoth(test, kPolicies[i % std::size(kPolicies)]);
      ASSERT_EQ(both.plan, both.walk);
      calls += both.plan.size() - 1;
    }
    EXPECT_GT(calls, 10000U) << "the random records are metered";
  }
}

}  // namespace
}  // namespace flow::test
