// SPDX-License-Identifier: Apache-2.0
// What a server gives up once its sockets and files are open. Whoever breaks in by a datagram or a
// request finds no capability, and none of the system calls that a server never makes.
#pragma once

#include <span>
#include <vector>

#include "host/command/capabilities.h"
#include "host/command/web_options.h"

namespace flow::host {

class Console;

// UsesOf is what the web reads while it runs.
std::vector<LaterUse> UsesOf(const WebOptions& options);

// EnterSandbox is for all threads, those that run too. It tells what could not be had.
void EnterSandbox(std::span<const LaterUse> uses, Console& console);

}  // namespace flow::host
