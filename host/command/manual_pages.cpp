// SPDX-License-Identifier: Apache-2.0
// flowhost(1), a page for each of its commands, and flowhost-policy(5), in Markdown.

#include <fmt/format.h>

#include <algorithm>
#include <cctype>

#include "host/command/command_parts.h"
#include "host/command/describe.h"
#include "host/policy/default_policies.h"

namespace flow::host {
namespace {

std::string Plain(std::string_view text) { return Escaped(text, "\\`*_[]<>|~#&", "\\"); }

std::string Name(std::string_view name, std::string about) {
  about.front() = static_cast<char>(std::tolower(static_cast<unsigned char>(about.front())));
  return fmt::format("# NAME\n\n{} - {}\n\n", name, Plain(about));
}

std::string Entry(const std::string& term, std::string_view text) {
  return fmt::format("{}\n: {}\n\n", term, Plain(text));
}

std::string OptionTerm(const CLI::Option& option) {
  const std::string name = fmt::format("**--{}**", LongName(option));
  if (KindOf(option) == ArgumentKind::kNone) return name;
  return fmt::format("{} *{}*", name, Plain(TypeName(option)));
}

std::string OptionEntry(const CLI::Option& option) {
  const std::string range = Range(option);
  return Entry(OptionTerm(option), option.get_description() + (range.empty() ? "" : "; " + range));
}

std::string Synopsis(const CLI::App& command) {
  std::string text = fmt::format("**flowhost {}** \\[*options*\\]", command.get_name());
  for (const CLI::Option* option : Options(command)) {
    if (option->get_required()) text += ' ' + OptionTerm(*option);
  }
  for (const CLI::Option* positional : Positionals(command)) {
    text += fmt::format(fmt::runtime(positional->get_required() ? " *{}*" : " \\[*{}*\\]"),
                        positional->get_name(true));
    if (positional->get_items_expected_max() > 1) text += "...";
  }
  return text;
}

// A footer's paragraphs: those with lines that are set in stand as they were written.
std::string Notes(std::string_view footer) {
  std::string text;
  while (!footer.empty()) {
    const std::string_view paragraph = footer.substr(0, footer.find("\n\n"));
    footer.remove_prefix(std::min(paragraph.size() + 2, footer.size()));
    const bool is_set_in = paragraph.find("\n  ") != std::string_view::npos;
    text += is_set_in ? fmt::format("```\n{}\n```\n\n", paragraph)
                      : fmt::format("{}\n\n", Plain(paragraph));
  }
  return text.empty() ? text : "# NOTES\n\n" + text;
}

std::string CommandPage(const CLI::App& command) {
  std::string text = Name("flowhost-" + command.get_name(), command.get_description());
  text += "# SYNOPSIS\n\n" + Synopsis(command) + "\n\n";
  text += fmt::format("# DESCRIPTION\n\n{}.\n\n", Plain(command.get_description()));
  for (const CLI::Option* positional : Positionals(command)) {
    text += Entry(fmt::format("*{}*", positional->get_name(true)), positional->get_description());
  }
  text += "# OPTIONS\n\n";
  for (const CLI::Option* option : Options(command)) {
    text += OptionEntry(*option);
  }
  return text + Notes(command.get_footer()) +
         "# SEE ALSO\n\n**flowhost**(1), **flowhost-policy**(5), **flowhost-store**(5)\n";
}

std::string SettingText(const PolicySetting& setting) {
  std::string text(setting.effect);
  if (!setting.absent.empty()) {
    const bool is_written = !setting.written.empty() && setting.written != setting.absent;
    text += fmt::format(" ({} when absent", setting.absent);
    if (is_written) text += fmt::format("; {} in the policies of flowhost", setting.written);
    text += ')';
  }
  return Entry(fmt::format("**{}**", Plain(setting.key)), text);
}

}  // namespace

std::string ManualPage(const CLI::App& app, const CLI::App* command) {
  if (command) return CommandPage(*command);
  std::string text = Name("flowhost", "meter NetFlow, IPFIX and sFlow") + "# SYNOPSIS\n\n";
  for (const CLI::App* listed : Commands(app)) text += Synopsis(*listed) + "  \n";
  text += fmt::format("\n# DESCRIPTION\n\n{}\n\n# COMMANDS\n\n", Plain(app.get_description()));
  for (const CLI::App* listed : Commands(app)) {
    text += Entry(fmt::format("**flowhost-{}**(1)", listed->get_name()), listed->get_description());
  }
  text += "# OPTIONS\n\n";
  for (const CLI::Option* option : Options(app)) {
    text += OptionEntry(*option);
  }
  return text + Notes(app.get_footer()) +
         "# SEE ALSO\n\n**flowhost-policy**(5), **flowhost-store**(5)\n";
}

std::string PolicyManualPage() {
  std::string text = Name("flowhost-policy", "policy files of the flow meters");
  text +=
      "# DESCRIPTION\n\n"
      "A directory of policies, /etc/flowhost for the service, has two XML files. A setting is an\n"
      "element below **Policy** in the element **OmbrelPluginConfiguration**. A switch is on when\n"
      "its text is true; lists are separated by commas without blanks; an empty setting counts as\n"
      "absent.\n\n"
      "**flowhost check-config** tells whether the files can be used. A running collector notices\n"
      "an edited NetFlow policy; an sFlow policy takes a restart.\n\n";
  for (const std::string_view file : PolicyFileNames()) {
    text += fmt::format("# SETTINGS OF {}\n\n", file);
    for (const PolicySetting& setting : PolicySettings(file)) text += SettingText(setting);
  }
  return text + "# SEE ALSO\n\n**flowhost**(1), **flowhost-check-config**(1)\n";
}

}  // namespace flow::host
