// SPDX-License-Identifier: Apache-2.0
// What flowhost says of itself for others to read: manual pages in Markdown, and completion for
// shells. All of it comes from the definition of the command line and the tables of the settings.
#pragma once

#include <string>

namespace CLI {
class App;
}

namespace flow::host {

// The page of a command, or of all together for none.
std::string ManualPage(const CLI::App& app, const CLI::App* command);
std::string PolicyManualPage();

std::string BashCompletion(const CLI::App& app);
std::string ZshCompletion(const CLI::App& app);
std::string FishCompletion(const CLI::App& app);

// AddDescribe adds the command to app. No help lists it: a build runs it, people have no use for
// it.
void AddDescribe(CLI::App* app);

}  // namespace flow::host
