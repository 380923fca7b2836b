#include "host/policy/policy_names.h"

#include <absl/strings/ascii.h>

#include <algorithm>
#include <set>

namespace flow::host {
namespace {

bool IsNameCharacter(char c) {
  return absl::ascii_isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-' || c == '.' ||
         c == ':';
}

// Visits the names of all start tags; those within comments too, or not.
template <class Visit>
void ForEachTag(std::string_view text, bool in_comments, Visit&& visit) {
  constexpr std::string_view kComment = "<!--";
  std::size_t at = 0;
  while ((at = text.find('<', at)) != std::string_view::npos) {
    if (!in_comments && text.substr(at, kComment.size()) == kComment) {
      at = std::min(text.find("-->", at), text.size());
      continue;
    }
    const std::size_t start = ++at;
    while (at < text.size() && IsNameCharacter(text[at])) ++at;
    if (at > start) visit(text.substr(start, at - start), start);
  }
}

}  // namespace

std::vector<UnknownName> UnknownNames(std::string_view policy, std::string_view default_policy) {
  std::set<std::string_view> known;
  ForEachTag(default_policy, true, [&](std::string_view name, std::size_t) { known.insert(name); });
  std::vector<UnknownName> unknown;
  ForEachTag(policy, false, [&](std::string_view name, std::size_t at) {
    if (known.contains(name)) return;
    const auto lines = std::ranges::count(policy.substr(0, at), '\n');
    unknown.push_back({std::string(name), static_cast<std::size_t>(lines) + 1});
  });
  return unknown;
}

}  // namespace flow::host
