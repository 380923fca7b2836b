// SPDX-License-Identifier: Apache-2.0
// Plays files, or all files of folders, through a fuzz target. A folder that does not exist counts
// as empty; a file that cannot be read is an error.

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

bool Play(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
  if (!file && !file.eof()) {
    std::fprintf(stderr, "cannot read %s\n", path.c_str());
    return false;
  }
  // A block of exactly that size, so that a sanitizer sees one byte too many.
  const std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
  LLVMFuzzerTestOneInput(input.data(), input.size());
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  std::size_t played = 0;
  for (int i = 1; i < argc; ++i) {
    const std::filesystem::path path = argv[i];
    if (std::filesystem::is_regular_file(path)) {
      if (!Play(path)) return 1;
      ++played;
      continue;
    }
    if (!std::filesystem::is_directory(path)) continue;
    for (const auto& entry : std::filesystem::directory_iterator(path)) {
      if (!entry.is_regular_file()) continue;
      if (!Play(entry.path())) return 1;
      ++played;
    }
  }
  std::printf("%zu inputs\n", played);
  return played == 0 ? 1 : 0;
}
