// SPDX-License-Identifier: Apache-2.0
#include "host/command/describe.h"

#include <cstdio>
#include <memory>
#include <string_view>

#include "host/command/command_parts.h"

namespace flow::host {
namespace {

std::string CommandList(const CLI::App& app) {
  std::string list;
  for (const CLI::App* command : Commands(app)) list += command->get_name() + '\n';
  return list;
}

struct Form {
  std::string_view name;
  std::string (*text)(const CLI::App& app);
};
constexpr Form kForms[] = {
    {"commands", CommandList},
    {"manual", [](const CLI::App& app) { return ManualPage(app, nullptr); }},
    {"policy-manual", [](const CLI::App&) { return PolicyManualPage(); }},
    {"bash", BashCompletion},
    {"zsh", ZshCompletion},
    {"fish", FishCompletion},
};

// Description gives the text of a form, or of a command; empty for a name of neither.
std::string Description(const CLI::App& app, const std::string& name) {
  for (const Form& form : kForms) {
    if (form.name == name) return form.text(app);
  }
  for (const CLI::App* command : Commands(app)) {
    if (command->get_name() == name) return ManualPage(app, command);
  }
  return {};
}

}  // namespace

void AddDescribe(CLI::App* app) {
  CLI::App* const describe = app->add_subcommand("describe", "Print what a build installs");
  describe->group("");
  const auto name = std::make_shared<std::string>();
  describe->add_option("FORM", *name)->required();
  describe->callback([app, name] {
    const std::string text = Description(*app, *name);
    if (text.empty()) throw CLI::ValidationError("FORM", *name + " is not described");
    std::fputs(text.c_str(), stdout);
    throw CLI::Success();
  });
}

}  // namespace flow::host
