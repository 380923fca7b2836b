// SPDX-License-Identifier: Apache-2.0
// Names in policy files: the plug-in passes over settings that it does not know, so a misspelt one
// has no effect and nobody hears of it.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace flow::host {

// What an operator should know about a line of a policy file.
struct PolicyRemark {
  std::size_t line = 0;
  std::string text;
};

// CheckPolicyNames lists the elements of a policy file that have no effect: those that the plug-in
// does not know, those in the wrong place, those that are there twice, and those whose value is of
// no use, by itself or beside others. A text that only the plug-in's reader takes for XML is read
// up to the place where it is none, and that is told as well.
std::vector<PolicyRemark> CheckPolicyNames(std::string_view file_name, std::string_view text);

}  // namespace flow::host
