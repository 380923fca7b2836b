// SPDX-License-Identifier: Apache-2.0
#include "tests/netflow/plan_check.h"

#include <array>

#include "netflow/netflow_meter.h"
#include "netflow/template.h"
#include "tests/support/recording_host.h"

namespace flow::test {
namespace {

// So many fields of variable length have no plan for what is between them.
constexpr std::size_t kWalked = flow::Template::kMostRuns + 1;

std::vector<std::string> CallsOf(const PlanCase& test, bool walk, std::string_view policy) {
  // The datagrams differ in their lengths, which are not to be counted.
  RecordingHost host;
  host.Home("10.0.0.0/8")
      .Policy(
          "<AllowVariableLengthStrings>true</AllowVariableLengthStrings>"
          "<MeterNetflowSources>false</MeterNetflowSources>" +
          std::string(policy));
  const auto meter = host.Attach<CPINetflowMeter>();
  Fields fields = test.fields;
  if (walk) fields.insert(fields.end(), kWalked, {999, kVariableLength});
  Set data = DataSet(256);
  for (std::size_t i = 0; i < test.records.size(); ++i) {
    const bool is_cut = test.cut > 0 && i + 1 == test.records.size();
    const std::span<const std::uint8_t> whole(test.records[i]);
    Wire record = Wire().Raw(is_cut ? whole.first(test.cut) : whole);
    if (walk && !is_cut) record.Raw(std::array<std::uint8_t, kWalked>{});
    data.Record(record);
  }
  host.Count(meter, V9Packet().Add(V9Templates().Template(256, fields)).Build());
  host.Forget();
  host.Count(meter, V9Packet().Add(data).Build());
  std::vector<std::string> lines = host.Take();
  lines.emplace_back(SetErrorText(meter->LastSetError()));
  return lines;
}

}  // namespace

BothWays CallsOfBoth(const PlanCase& test, std::string_view policy) {
  return {CallsOf(test, false, policy), CallsOf(test, true, policy)};
}

}  // namespace flow::test
