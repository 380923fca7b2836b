// SPDX-License-Identifier: Apache-2.0
// Capabilities of a running process, and how it gives them up in all of its threads.
#pragma once

#include <optional>
#include <span>
#include <string>

namespace flow::host {

// A file or directory that is to be read, or written too, for as long as the process runs.
struct LaterUse {
  std::string path;
  bool writes = false;
};

// GiveUpCapabilities has every thread give up what it has, and the way to get more of it by
// starting a program. Where a file can be used by permissions of others alone, these are kept; then
// *kept names it. False when a thread could not be had to.
bool GiveUpCapabilities(std::span<const LaterUse> uses, std::optional<std::string>* kept);

}  // namespace flow::host
