// SPDX-License-Identifier: Apache-2.0
#include "host/policy/default_policies.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>

#include "host/base/files.h"

namespace flow::host {
namespace {

constexpr std::string_view kNetflowSiblings = R"(
  <!-- Templates of exporters that never send theirs: ids of the fields in order.
  <StaticTemplates>
    <Template id="256" name="border router"><Fields>8,12,7,11,4,1,2</Fields></Template>
  </StaticTemplates>
  -->

  <!-- Sampling rates of exporters that do not tell theirs; router 0.0.0.0 is for all others.
  <SamplingRates>
    <Rate router="10.0.0.1" rate="100"/>
  </SamplingRates>
  -->
)";

struct Policy {
  std::string_view file_name;
  std::string_view heading;
  std::span<const PolicySetting> settings;
  std::string_view siblings;  // what stands beside the settings
};

constexpr Policy kPolicies[] = {
    {kNetflowPolicyFile, "How NetFlow and IPFIX records are metered.", kNetflowSettings,
     kNetflowSiblings},
    {kSFlowPolicyFile, "How sFlow samples are metered.", kSFlowSettings, ""},
};

}  // namespace

std::string DefaultPolicy(std::string_view file_name) {
  for (const Policy& policy : kPolicies) {
    if (policy.file_name != file_name) continue;
    std::string text = fmt::format(
        "<?xml version=\"1.0\"?>\n"
        "<!-- {} A switch is on when its text is \"true\"; lists are separated by commas\n"
        "     without blanks; an empty setting has its default. -->\n"
        "<OmbrelPluginConfiguration>\n"
        "  <Policy>\n",
        policy.heading);
    for (const PolicySetting& setting : policy.settings) {
      const std::string element = fmt::format("<{0}>{1}</{0}>", setting.key, setting.written);
      text += fmt::format("    {:<58} <!-- {} -->\n", element, setting.effect);
    }
    text += fmt::format("  </Policy>\n{}</OmbrelPluginConfiguration>\n", policy.siblings);
    return text;
  }
  return {};
}

std::span<const PolicySetting> PolicySettings(std::string_view file_name) {
  for (const Policy& policy : kPolicies) {
    if (policy.file_name == file_name) return policy.settings;
  }
  return {};
}

std::vector<std::string_view> PolicyFileNames() {
  std::vector<std::string_view> names;
  for (const Policy& policy : kPolicies) names.push_back(policy.file_name);
  return names;
}

bool WriteDefaultPolicy(const std::filesystem::path& path, std::error_code* error) {
  const std::string text = DefaultPolicy(path.filename().string());
  if (text.empty()) {
    *error = std::make_error_code(std::errc::no_such_file_or_directory);
    return false;
  }
  std::filesystem::create_directories(path.parent_path(), *error);
  if (*error) return false;
  // Written aside and renamed: another run must never read half a policy.
  std::filesystem::path draft = path;
  draft += ".new";
  const int file = CreateAnew(draft.string(), 0666);
  const bool written = file >= 0 && WriteAll(file, text);
  if (!written) *error = std::error_code(errno, std::generic_category());
  if (file >= 0) close(file);
  if (!written) return false;
  std::filesystem::rename(draft, path, *error);
  return !*error;
}

}  // namespace flow::host
