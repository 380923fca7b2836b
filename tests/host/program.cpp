// SPDX-License-Identifier: Apache-2.0
#include "tests/host/program.h"

#include <sys/wait.h>

#include <cstdlib>

#include "tests/host/captures.h"

namespace flow::host::test {

ProgramResult RunProgram(const std::vector<std::string>& arguments) {
  const TemporaryFolder folder;
  const std::string home = (folder / "home").string();
  std::string command = "HOME=" + home + " XDG_CONFIG_HOME= " FLOWHOST_PROGRAM;
  for (const std::string& argument : arguments) command += " '" + argument + "'";
  command += " >" + (folder / "out").string() + " 2>" + (folder / "err").string();
  const int status = std::system(command.c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadFile(folder / "out"),
          ReadFile(folder / "err")};
}

std::string FakePlugin() { return FAKE_PLUGIN; }
std::string EmptyPlugin() { return EMPTY_PLUGIN; }

}  // namespace flow::host::test
