// SPDX-License-Identifier: Apache-2.0
// The "Policy" element of a policy document, without a file.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "tests/support/policy_file.h"
#include "util/xmlParser.h"

namespace flow::test {

// ParsedPolicy ends the program when the settings are no XML.
inline XMLNode ParsedPolicy(std::string_view settings) {
  XMLResults results;
  const XMLNode root =
      XMLNode::parseString(PolicyXml(settings).c_str(), "OmbrelPluginConfiguration", &results);
  if (results.error != XMLError{}) {
    std::fprintf(stderr, "%s: %s\n", XMLNode::getError(results.error),
                 std::string(settings).c_str());
    std::abort();
  }
  return root.getChildNode("Policy");
}

// Setting is the element of one setting.
inline std::string Setting(const std::string& key, const std::string& text) {
  return "<" + key + ">" + text + "</" + key + ">";
}

}  // namespace flow::test
