// Names in policy files: the plug-in passes over settings that it does not know, so a misspelt one
// has no effect and nobody hears of it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace flow::host {

struct UnknownName {
  std::string name;
  std::size_t line = 0;
};

// UnknownNames lists the elements of a policy that the default policy knows neither as settings nor
// in its examples.
std::vector<UnknownName> UnknownNames(std::string_view policy, std::string_view default_policy);

}  // namespace flow::host
