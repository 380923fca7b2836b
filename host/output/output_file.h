// SPDX-License-Identifier: Apache-2.0
// A file that is being written, standard output for "-". Readers see the old one, or the whole new
// one.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

namespace flow::host {

class OutputFile {
 public:
  // HostError when it cannot be opened.
  explicit OutputFile(const std::string& path);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  void Write(std::string_view text);

  // Close ends the file; HostError when not everything could be written.
  void Close();

 private:
  std::string path_;
  std::string part_;  // the name until the file is whole; empty for a device
  std::FILE* file_ = nullptr;
};

}  // namespace flow::host
