// SPDX-License-Identifier: Apache-2.0
// The tables of settings in the operator's manual are those of the library. A wrong one is written
// anew with FLOW_UPDATE=1 in the environment.

#include <gtest/gtest.h>

#include <cstdlib>
#include <span>
#include <string>

#include "plugin/policy_settings.h"
#include "tests/support/policy_file.h"

namespace flow::test {
namespace {

constexpr char kManual[] = "docs/operator.md";

struct Table {
  const char* mark;  // the line above it
  std::span<const PolicySetting> settings;
  SettingGroup group;
};
constexpr Table kTables[] = {
    {"<!-- NetFlow: what is counted -->", kNetflowSettings, SettingGroup::kCounted},
    {"<!-- NetFlow: flows -->", kNetflowSettings, SettingGroup::kFlows},
    {"<!-- NetFlow: what is taken in -->", kNetflowSettings, SettingGroup::kIntake},
    {"<!-- NetFlow: running -->", kNetflowSettings, SettingGroup::kRunning},
    {"<!-- NetFlow: unused -->", kNetflowSettings, SettingGroup::kUnused},
    {"<!-- sFlow: what is counted -->", kSFlowSettings, SettingGroup::kCounted},
    {"<!-- sFlow: flows -->", kSFlowSettings, SettingGroup::kFlows},
    {"<!-- sFlow: what is taken in -->", kSFlowSettings, SettingGroup::kIntake},
    {"<!-- sFlow: unused -->", kSFlowSettings, SettingGroup::kUnused},
};

std::string Text(const Table& table) {
  std::string text = "| setting | default | |\n| --- | --- | --- |\n";
  for (const PolicySetting& setting : table.settings) {
    if (setting.group != table.group) continue;
    text += "| " + std::string(setting.key) + " | " + std::string(setting.absent) +
            (setting.absent.empty() ? "| " : " | ") + std::string(setting.effect);
    if (setting.written != setting.absent) {
      text += " (flowhost writes " + std::string(setting.written) + ")";
    }
    text += " |\n";
  }
  return text;
}

// The manual with a table in place of the one behind its mark; as it is without the mark.
std::string With(const Table& table, const std::string& manual) {
  const std::string mark = "\n" + std::string(table.mark) + "\n";
  const std::size_t found = manual.find(mark);
  if (found == std::string::npos) return manual;
  std::size_t end = found + mark.size();
  while (manual.compare(end, 1, "|") == 0) end = manual.find('\n', end) + 1;
  return manual.substr(0, found + mark.size()) + Text(table) + manual.substr(end);
}

TEST(OperatorDocs, HaveTheSettingsOfTheLibrary) {
  const std::string manual = ReadFile(kManual);
  std::string right = manual;
  for (const Table& table : kTables) {
    EXPECT_NE(manual.find(table.mark), std::string::npos) << table.mark;
    right = With(table, right);
    EXPECT_NE(manual.find(Text(table)), std::string::npos)
        << kManual << ", under " << table.mark << ", is to be:\n"
        << Text(table) << "FLOW_UPDATE=1 ctest -R OperatorDocs writes it.";
  }
  // A setting whose group has no table stands nowhere.
  for (const PolicySetting& setting : kSFlowSettings) {
    EXPECT_NE(setting.group, SettingGroup::kRunning) << setting.key;
  }
  if (std::getenv("FLOW_UPDATE") != nullptr && right != manual) WriteFile(kManual, right);
}

}  // namespace
}  // namespace flow::test
