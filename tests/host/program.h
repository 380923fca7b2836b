// SPDX-License-Identifier: Apache-2.0
// Running flowhost as a user does.
#pragma once

#include <string>
#include <vector>

namespace flow::host::test {

struct ProgramResult {
  int status = -1;
  std::string out;
  std::string err;
};

// RunProgram runs the program with these arguments; HOME is a folder without anything.
ProgramResult RunProgram(const std::vector<std::string>& arguments);

// The plug-in made for tests, and a library that is none.
std::string FakePlugin();
std::string EmptyPlugin();

}  // namespace flow::host::test
