#include "tests/support/samples.h"

#include <algorithm>
#include <filesystem>

#include "tests/support/policy_file.h"

namespace flow::test {

std::string SampleDirectory() {
  const std::filesystem::path path =
      std::filesystem::path(FLOW_PROJECT_DIR) / "../shared/captures/datagrams";
  return std::filesystem::is_directory(path) ? path.string() : std::string();
}

std::vector<std::string> SampleNames() {
  std::vector<std::string> names;
  if (SampleDirectory().empty()) return names;
  for (const auto& entry : std::filesystem::directory_iterator(SampleDirectory())) {
    if (entry.path().extension() == ".dat") names.push_back(entry.path().stem().string());
  }
  std::ranges::sort(names);
  return names;
}

Bytes ReadSample(const std::string& name) {
  const std::string content = ReadFile(SampleDirectory() + "/" + name + ".dat");
  return {content.begin(), content.end()};
}

}  // namespace flow::test
