// SPDX-License-Identifier: Apache-2.0
// The parts of the command line, for those who describe it.
#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <string_view>
#include <vector>

namespace flow::host {

// What stands behind an option, or in a positional's place.
enum class ArgumentKind { kNone, kFile, kDirectory, kOther };

// The commands that a help lists.
std::vector<const CLI::App*> Commands(const CLI::App& app);

// The options that a help lists, and the positionals, in the order of their definition.
std::vector<const CLI::Option*> Options(const CLI::App& app);
std::vector<const CLI::Option*> Positionals(const CLI::App& app);

ArgumentKind KindOf(const CLI::Option& option);

// The first long name without dashes, as all options have one.
std::string LongName(const CLI::Option& option);

// What stands for an option's value, and what range it has to be in, as in "1 to 64".
std::string TypeName(const CLI::Option& option);
std::string Range(const CLI::Option& option);

// What an option does, without defaults and details.
std::string Brief(const CLI::Option& option);

// Escaped gives text with every one of the characters behind the escape.
std::string Escaped(std::string_view text, std::string_view characters, const char* escape);

}  // namespace flow::host
