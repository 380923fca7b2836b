// SPDX-License-Identifier: Apache-2.0
// Temporary directories and policy files in them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace flow::test {

// A directory that is removed with its contents.
class TempDirectory {
 public:
  TempDirectory();
  ~TempDirectory();
  TempDirectory(const TempDirectory&) = delete;
  TempDirectory& operator=(const TempDirectory&) = delete;

  const std::string& Path() const { return path_; }
  std::string Path(std::string_view name) const { return path_ + "/" + std::string(name); }

 private:
  std::string path_;
};

// ReadFile, WriteFile and SetModificationTime end the program when they fail.
std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, std::string_view content);
void SetModificationTime(const std::string& path, std::int64_t seconds);

// PolicyXml is a whole policy document: settings inside <Policy>, beside after it under the root.
std::string PolicyXml(std::string_view settings, std::string_view beside = {});

// A policy file in a temporary directory of its own.
class PolicyFile {
 public:
  explicit PolicyFile(std::string_view settings = {}, std::string_view beside = {},
                      std::string_view name = "NetflowCounterPolicy.xml");

  const std::string& Path() const { return path_; }

  void Write(std::string_view settings, std::string_view beside = {});
  // WriteRaw makes the file hold just this text.
  void WriteRaw(std::string_view text);
  // Replace changes the first occurrence of a text in the file; it has to be there.
  void Replace(std::string_view what, std::string_view with);
  void SetModified(std::int64_t seconds) { SetModificationTime(path_, seconds); }

 private:
  TempDirectory directory_;
  std::string path_;
};

}  // namespace flow::test
