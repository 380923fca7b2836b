// SPDX-License-Identifier: Apache-2.0
#include "tests/support/policy_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace flow::test {
namespace {

[[noreturn]] void Stop(const std::string& what, const std::string& path) {
  std::fprintf(stderr, "%s: %s\n", what.c_str(), path.c_str());
  std::abort();
}

}  // namespace

TempDirectory::TempDirectory() : path_(std::filesystem::temp_directory_path() / "flow-XXXXXX") {
  if (mkdtemp(path_.data()) == nullptr) Stop("cannot make a directory", path_);
}

TempDirectory::~TempDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) Stop("cannot read", path);
  return {std::istreambuf_iterator<char>(file), {}};
}

void WriteFile(const std::string& path, std::string_view content) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(content.data(), static_cast<std::streamsize>(content.size()));
  if (!file.flush()) Stop("cannot write", path);
}

void SetModificationTime(const std::string& path, std::int64_t seconds) {
  const timespec times[2] = {{.tv_sec = seconds, .tv_nsec = 0}, {.tv_sec = seconds, .tv_nsec = 0}};
  if (utimensat(AT_FDCWD, path.c_str(), times, 0) != 0) Stop("cannot set the time of", path);
}

std::string PolicyXml(std::string_view settings, std::string_view beside) {
  std::string text = "<?xml version=\"1.0\"?>\n<OmbrelPluginConfiguration>\n<Policy>\n";
  text += settings;
  text += "\n</Policy>\n";
  text += beside;
  text += "</OmbrelPluginConfiguration>\n";
  return text;
}

PolicyFile::PolicyFile(std::string_view settings, std::string_view beside, std::string_view name)
    : path_(directory_.Path(name)) {
  Write(settings, beside);
}

void PolicyFile::Write(std::string_view settings, std::string_view beside) {
  WriteRaw(PolicyXml(settings, beside));
}

void PolicyFile::WriteRaw(std::string_view text) { WriteFile(path_, text); }

void PolicyFile::Replace(std::string_view what, std::string_view with) {
  std::string text = ReadFile(path_);
  const std::size_t at = text.find(what);
  if (at == std::string::npos) Stop("not in the policy: " + std::string(what), path_);
  WriteRaw(text.replace(at, what.size(), with));
}

}  // namespace flow::test
