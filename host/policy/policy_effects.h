// SPDX-License-Identifier: Apache-2.0
// Settings that are fine one by one and have no effect beside others, and lists of which nothing
// remains: the plug-in takes them without a word, or with one about each item alone.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace flow::host {

// The settings that a policy file has, by their keys.
using PolicyTexts = std::map<std::string_view, std::string>;

// IsOn tells whether a switch of the file is on.
bool IsOn(std::string_view file_name, const PolicyTexts& texts, std::string_view key);

// CheckPolicyEffects tells what the settings of a file do not do that their texts promise, and
// whose line has the promise.
using TellEffect = std::function<void(std::string_view key, std::string remark)>;
void CheckPolicyEffects(std::string_view file_name, const PolicyTexts& texts,
                        const TellEffect& tell);

}  // namespace flow::host
