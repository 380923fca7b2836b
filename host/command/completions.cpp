// SPDX-License-Identifier: Apache-2.0
// Completion of the command line for three shells.

#include <fmt/format.h>

#include "host/command/command_parts.h"
#include "host/command/describe.h"

namespace flow::host {
namespace {

std::string Join(const std::vector<std::string>& words, const char* between) {
  return fmt::format("{}", fmt::join(words, between));
}

std::vector<std::string> CommandNames(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::App* command : Commands(app)) names.push_back(command->get_name());
  return names;
}

std::vector<std::string> Dashed(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::Option* option : Options(app)) names.push_back("--" + LongName(*option));
  return names;
}

// compgen's option for a value; empty where it cannot be completed.
const char* Compgen(ArgumentKind kind) {
  if (kind == ArgumentKind::kFile) return "-f";
  return kind == ArgumentKind::kDirectory ? "-d" : "";
}

// What a command's positionals take.
ArgumentKind PositionalKind(const CLI::App& command) {
  const auto positionals = Positionals(command);
  return positionals.empty() ? ArgumentKind::kNone : KindOf(*positionals.front());
}

// The options of a command whose values are of a kind, as patterns of a case in bash.
std::string BashPatterns(const CLI::App& command, ArgumentKind kind) {
  std::vector<std::string> patterns;
  for (const CLI::Option* option : Options(command)) {
    if (KindOf(*option) != kind) continue;
    patterns.push_back(fmt::format("{}:--{}", command.get_name(), LongName(*option)));
  }
  return Join(patterns, "|");
}

std::string ZshText(const std::string& text) {
  return Escaped(Escaped(text, "\\[]:", "\\"), "'", "'\\'");
}

const char* ZshAction(ArgumentKind kind) {
  if (kind == ArgumentKind::kFile) return "_files";
  return kind == ArgumentKind::kDirectory ? "_files -/" : " ";
}

std::string ZshArgument(const CLI::Option& option) {
  const ArgumentKind kind = KindOf(option);
  if (option.get_positional()) {
    return fmt::format(" '*:{}:{}'", option.get_name(true), ZshAction(kind));
  }
  const std::string value = kind == ArgumentKind::kNone
                                ? ""
                                : fmt::format(":{}:{}", ZshText(TypeName(option)), ZshAction(kind));
  return fmt::format(" '*--{}[{}]{}'", LongName(option), ZshText(Brief(option)), value);
}

const char* FishValue(ArgumentKind kind) {
  switch (kind) {
    case ArgumentKind::kNone:
      return "-f";
    case ArgumentKind::kFile:
      return "-r -F";
    case ArgumentKind::kDirectory:
      return "-x -a '(__fish_complete_directories)'";
    case ArgumentKind::kOther:
      return "-x";
  }
  return "";
}

std::string FishText(const std::string& text) { return Escaped(text, "\\'", "\\"); }

std::string FishOption(const std::string& condition, const CLI::Option& option) {
  return fmt::format("complete -c flowhost -n '{}' -l {} {} -d '{}'\n", condition, LongName(option),
                     FishValue(KindOf(option)), FishText(Brief(option)));
}

}  // namespace

std::string BashCompletion(const CLI::App& app) {
  std::string values;
  std::string words;
  for (const CLI::App* command : Commands(app)) {
    for (const ArgumentKind kind :
         {ArgumentKind::kFile, ArgumentKind::kDirectory, ArgumentKind::kOther}) {
      const std::string patterns = BashPatterns(*command, kind);
      if (!patterns.empty()) values += fmt::format("    {}) kind={} ;;\n", patterns, Compgen(kind));
    }
    words += fmt::format("    {}) words='{}' kind={} ;;\n", command->get_name(),
                         Join(Dashed(*command), " "), Compgen(PositionalKind(*command)));
  }
  return fmt::format(R"(# bash completion for flowhost
_flowhost() {{
  local cur=${{COMP_WORDS[COMP_CWORD]}} command= words= kind=none word
  for word in "${{COMP_WORDS[@]:1:COMP_CWORD-1}}"; do
    case $word in {0}) command=$word; break ;; esac
  done
  COMPREPLY=()
  case $command:${{COMP_WORDS[COMP_CWORD-1]}} in
{1}  esac
  if [[ $kind != none ]]; then
    [[ -z $kind ]] || mapfile -t COMPREPLY < <(compgen "$kind" -- "$cur")
    return
  fi
  case $command in
    '') words='{2}' kind= ;;
{3}  esac
  if [[ -z $command || $cur == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$cur")
  elif [[ -n $kind ]]; then
    mapfile -t COMPREPLY < <(compgen "$kind" -- "$cur")
  fi
}}
complete -o filenames -F _flowhost flowhost
)",
                     Join(CommandNames(app), "|"), values,
                     Join(CommandNames(app), " ") + " " + Join(Dashed(app), " "), words);
}

std::string ZshCompletion(const CLI::App& app) {
  std::string names;
  std::string cases;
  for (const CLI::App* command : Commands(app)) {
    names += fmt::format("    '{}:{}'\n", command->get_name(), ZshText(command->get_description()));
    cases += fmt::format("    {}) _arguments", command->get_name());
    for (const CLI::Option* option : Options(*command)) cases += ZshArgument(*option);
    for (const CLI::Option* positional : Positionals(*command)) cases += ZshArgument(*positional);
    cases += " ;;\n";
  }
  return fmt::format(R"(#compdef flowhost
_flowhost() {{
  local -a commands=(
{0}  )
  if (( CURRENT == 2 )); then
    _describe command commands
    return
  fi
  shift words
  (( CURRENT-- ))
  case $words[1] in
{1}  esac
}}
_flowhost "$@"
)",
                     names, cases);
}

std::string FishCompletion(const CLI::App& app) {
  std::string text = "# fish completion for flowhost\n";
  for (const CLI::App* command : Commands(app)) {
    text += fmt::format("complete -c flowhost -f -n __fish_use_subcommand -a {} -d '{}'\n",
                        command->get_name(), FishText(command->get_description()));
  }
  for (const CLI::Option* option : Options(app)) {
    text += FishOption("__fish_use_subcommand", *option);
  }
  for (const CLI::App* command : Commands(app)) {
    const std::string condition = "__fish_seen_subcommand_from " + command->get_name();
    for (const CLI::Option* option : Options(*command)) text += FishOption(condition, *option);
    const ArgumentKind kind = PositionalKind(*command);
    if (kind == ArgumentKind::kFile) continue;  // fish's own way
    text += fmt::format("complete -c flowhost -n '{}' {}\n", condition,
                        kind == ArgumentKind::kDirectory ? FishValue(kind) : "-f");
  }
  return text;
}

}  // namespace flow::host
