// SPDX-License-Identifier: Apache-2.0
#include "tests/support/recording_site.h"

#include <algorithm>
#include <cstring>

namespace flow::test {

std::uint32_t RecordingSite::AddRef() {
  trace().Query("Site.AddRef");
  return static_cast<std::uint32_t>(++references);
}

std::uint32_t RecordingSite::Release() {
  trace().Query("Site.Release");
  if (references == 0) trace().Fault("Release on the site, on which no reference is held");
  return static_cast<std::uint32_t>(--references);
}

Status RecordingSite::Log(int level, const char* text) {
  trace().Call("Log", level, Text{text});
  if (text == nullptr || (level != kLogError && level != kLogWarning && level != kLogProgress &&
                          level != kLogInformation)) {
    trace().Fault("Log of a null text or with a level that the host does not know");
  }
  Status status = kStatusOk;
  trace().Failure("Log", &status);
  return status;
}

Status RecordingSite::GetDataDirectory(char** path) {
  trace().Query("GetDataDirectory");
  return Give("GetDataDirectory", data_directory, path);
}

Status RecordingSite::PreparePluginConfigFile(const IID& owner, const char* fileName,
                                              char** fullPath) {
  trace().Query("PreparePluginConfigFile", owner, Text{fileName});
  const auto found = policies.find(GuidName(owner));
  if (found == policies.end()) {
    trace().Fault("PreparePluginConfigFile for a class without a policy: " + GuidName(owner));
    return kStatusFailed;
  }
  return Give("PreparePluginConfigFile", found->second, fullPath);
}

Status RecordingSite::IsHomeAddress(std::uint32_t address, bool* result) {
  trace().Query("IsHomeAddress", Address{address}, IsHome(address));
  Status status = kStatusOk;
  if (!trace().Failure("IsHomeAddress", &status)) *result = IsHome(address);
  return status;
}

Status RecordingSite::GetHomeNetworks(int* count, std::uint32_t** addresses,
                                      std::uint32_t** masks) {
  trace().Query("GetHomeNetworks");
  Status status = kStatusOk;
  if (trace().Failure("GetHomeNetworks", &status)) return status;
  *count = static_cast<int>(home.size());
  *addresses = new std::uint32_t[home.size()];
  *masks = new std::uint32_t[home.size()];
  for (std::size_t i = 0; i < home.size(); ++i) {
    (*addresses)[i] = home[i].address;
    (*masks)[i] = home[i].mask;
  }
  return status;
}

Status RecordingSite::GetInstanceNumber(long* number) {
  trace().Query("GetInstanceNumber");
  Status status = kStatusOk;
  if (!trace().Failure("GetInstanceNumber", &status)) *number = instance;
  return status;
}

Status RecordingSite::GetWorkDirectory(char** path) {
  trace().Query("GetWorkDirectory");
  return Give("GetWorkDirectory", work_directory, path);
}

Status RecordingSite::Give(const char* operation, const std::optional<std::string>& text,
                           char** out) {
  *out = nullptr;
  Status status = kStatusOk;
  if (trace().Failure(operation, &status) || !text) return status;
  *out = new char[text->size() + 1];
  std::memcpy(*out, text->c_str(), text->size() + 1);
  return status;
}

bool RecordingSite::IsHome(std::uint32_t address) const {
  return std::ranges::any_of(home, [address](const Network& network) {
    return ((address ^ network.address) & network.mask) == 0;
  });
}

}  // namespace flow::test
