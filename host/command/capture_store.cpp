// SPDX-License-Identifier: Apache-2.0
#include "host/command/capture_store.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "host/base/error.h"

namespace flow::host {
namespace {

std::string MakeDirectory() {
  std::string path = (std::filesystem::temp_directory_path() / "flowhost-XXXXXX").string();
  if (mkdtemp(path.data()) == nullptr) {
    throw HostError("no directory can be made for the captures: " +
                    std::generic_category().message(errno));
  }
  return path;
}

std::vector<std::string> ReplayOf(const CaptureOptions& options, const std::string& directory) {
  std::vector<std::string> words{"flowhost", "replay", "--store", directory, "--top", "0"};
  const auto add = [&words](const char* option, const std::string& value) {
    words.emplace_back(option);
    words.push_back(value);
  };
  if (!options.plugin.empty()) add("--plugin", options.plugin);
  for (const std::string& port : options.ports) add("--port", port);
  for (const std::string& network : options.home) add("--home", network);
  words.emplace_back("--");
  words.insert(words.end(), options.captures.begin(), options.captures.end());
  return words;
}

// Runs this program again with its output thrown away; its exit status.
int RunAgain(std::vector<std::string> words) {
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t child = 0;
  const int failed =
      posix_spawn(&child, "/proc/self/exe", &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (failed != 0) {
    throw HostError("the captures cannot be read: " + std::generic_category().message(failed));
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void Remove(const std::string& directory) {
  std::error_code ignored;
  std::filesystem::remove_all(directory, ignored);
}

}  // namespace

CaptureStore::CaptureStore(const CaptureOptions& options) : directory_(MakeDirectory()) {
  const int status = RunAgain(ReplayOf(options, directory_));
  if (status == kExitOk) return;
  Remove(directory_);
  throw HostError("the captures could not be read");
}

CaptureStore::~CaptureStore() { Remove(directory_); }

}  // namespace flow::host
