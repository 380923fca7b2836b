// SPDX-License-Identifier: Apache-2.0
#include "host/command/command_parts.h"

#include <algorithm>

namespace flow::host {
namespace {

constexpr std::string_view kRange = ":INT in [";

std::vector<const CLI::Option*> Listed(const CLI::App& app, bool positionals) {
  return app.get_options([positionals](const CLI::Option* option) {
    return !option->get_group().empty() && option->get_positional() == positionals;
  });
}

}  // namespace

std::vector<const CLI::App*> Commands(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App* command) { return !command->get_group().empty(); });
}

std::vector<const CLI::Option*> Options(const CLI::App& app) { return Listed(app, false); }
std::vector<const CLI::Option*> Positionals(const CLI::App& app) { return Listed(app, true); }

ArgumentKind KindOf(const CLI::Option& option) {
  if (option.get_items_expected_max() == 0) return ArgumentKind::kNone;
  const std::string type = option.get_positional() ? option.get_name(true) : option.get_type_name();
  if (type == "DIR") return ArgumentKind::kDirectory;
  for (const char* file : {"FILE", "PATH", "CAPTURE", "CAPTURE..."}) {
    if (type == file) return ArgumentKind::kFile;
  }
  return ArgumentKind::kOther;
}

std::string LongName(const CLI::Option& option) { return option.get_lnames().front(); }

// CLI11 puts what the checks of an option say behind the name of its type.
std::string TypeName(const CLI::Option& option) {
  const std::string name = option.get_type_name();
  return name.substr(0, std::min(name.find(kRange), name.find(":SIZE")));
}

std::string Range(const CLI::Option& option) {
  const std::string name = option.get_type_name();
  const std::size_t at = name.find(kRange);
  if (at == std::string::npos) return {};
  std::string range = name.substr(at + kRange.size(), name.find(']') - at - kRange.size());
  return range.replace(range.find(" - "), 3, " to ");
}

std::string Brief(const CLI::Option& option) {
  const std::string text = option.get_description();
  std::size_t end = text.size();
  for (const char* stop : {"; ", " (", ": ", ". "}) end = std::min(end, text.find(stop));
  return text.substr(0, end);
}

std::string Escaped(std::string_view text, std::string_view characters, const char* escape) {
  std::string escaped;
  for (const char c : text) {
    if (characters.find(c) != std::string_view::npos) escaped += escape;
    escaped += c;
  }
  return escaped;
}

}  // namespace flow::host
