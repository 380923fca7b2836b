// SPDX-License-Identifier: Apache-2.0
// The site of the recording host.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "flowhandlers/host_interfaces.h"
#include "tests/support/host_object.h"

namespace flow::test {

class RecordingSite final : public HostObject<IOmbrelContainer> {
 public:
  explicit RecordingSite(HostTrace* trace) : HostObject(trace, "the site") {}

  struct Network {
    std::uint32_t address;  // host byte order, as the mask
    std::uint32_t mask;
  };

  std::vector<Network> home;
  std::optional<std::string> data_directory;
  std::optional<std::string> work_directory;
  std::map<std::string, std::optional<std::string>> policies;  // path by name of the class
  long instance = 1;
  int references = 0;

  // The site is the one object that a component may keep.
  std::uint32_t AddRef() override;
  std::uint32_t Release() override;

  Status Log(int level, const char* text) override;
  Status GetDataDirectory(char** path) override;
  Status PreparePluginConfigFile(const IID& owner, const char* fileName, char** fullPath) override;
  Status IsHomeAddress(std::uint32_t address, bool* result) override;
  Status GetHomeNetworks(int* count, std::uint32_t** addresses, std::uint32_t** masks) override;
  Status GetInstanceNumber(long* number) override;
  Status GetWorkDirectory(char** path) override;

 private:
  // Give hands out a text that the library frees, unless the operation has been told to fail.
  Status Give(const char* operation, const std::optional<std::string>& text, char** out);
  bool IsHome(std::uint32_t address) const;
};

}  // namespace flow::test
