// SPDX-License-Identifier: Apache-2.0
// The policy files that flowhost writes where there are none: every setting and a line on what it
// does.
#pragma once

#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "plugin/policy_settings.h"

namespace flow::host {

inline constexpr std::string_view kNetflowPolicyFile = "NetflowCounterPolicy.xml";
inline constexpr std::string_view kSFlowPolicyFile = "SFlowCounterPolicy.xml";

// DefaultPolicy gives the text of the policy file of that name, empty for a name that it does not
// know.
std::string DefaultPolicy(std::string_view file_name);

// PolicySettings gives the settings of the policy file of that name, none for one that it does not
// know.
std::span<const PolicySetting> PolicySettings(std::string_view file_name);

// The names of all policy files.
std::vector<std::string_view> PolicyFileNames();

// WriteDefaultPolicy writes the default policy for path's file name, and the directory if need be.
// False, and why in *error, when it cannot.
bool WriteDefaultPolicy(const std::filesystem::path& path, std::error_code* error);

}  // namespace flow::host
