// SPDX-License-Identifier: Apache-2.0
#include "host/border/site.h"

#include <fmt/format.h>
#include <unistd.h>

#include <utility>

#include "flowhandlers/kit/interface_ptr.h"
#include "host/base/console.h"
#include "host/base/files.h"
#include "host/base/heap_account.h"
#include "host/border/call_trace.h"
#include "host/policy/default_policies.h"

namespace flow::host {

Site::Site(const SiteSettings& settings, Console& console, std::string name, long instance,
           CallTrace* trace)
    : settings_(settings),
      console_(console),
      name_(std::move(name)),
      instance_(instance),
      trace_(trace) {}

Status Site::Log(int level, const char* text) {
  const HeapScope scope(nullptr);
  if (trace_ != nullptr) trace_->Call("Log {} {}", level, Quoted(text));
  if (!errors_alone_ || level <= kLogError) console_.Log(name_, level, text, exporter_);
  policy_.Hear(text);
  return kStatusOk;
}

Status Site::GetDataDirectory(char** path) {
  if (trace_ != nullptr) trace_->Call("GetDataDirectory");
  *path = kit::GiveText(settings_.data_directory.string());
  return kStatusOk;
}

Status Site::PreparePluginConfigFile(const IID& owner, const char* fileName, char** fullPath) {
  if (trace_ != nullptr) {
    trace_->Call("PreparePluginConfigFile {} {}", trace_->Name(owner), Quoted(fileName));
  }
  *fullPath = nullptr;
  std::filesystem::path path = settings_.config_directory / fileName;
  std::error_code error;
  if (!std::filesystem::exists(path, error)) {
    const bool elsewhere = !settings_.defaults_directory.empty();
    if (elsewhere) path = settings_.defaults_directory / fileName;
    if (!WriteDefaultPolicy(path, &error)) {
      console_.Error(fmt::format("policy file {} is not there and cannot be written: {}",
                                 path.string(), error.message()));
      return kStatusFailed;
    }
    if (!elsewhere) console_.Notice(fmt::format("wrote the default policy {}", path.string()));
  }
  policy_.UseAt(path);
  // The plug-in would wait for the other end of a pipe. What else is wrong it says itself.
  const int file = OpenToRead(path.string());
  if (file < 0 && errno == ENOTSUP) {
    console_.Error(
        fmt::format("policy file {} cannot be read: {}", path.string(), FileTrouble(ENOTSUP)));
    return kStatusFailed;
  }
  if (file >= 0) close(file);
  *fullPath = kit::GiveText(path.string());
  return kStatusOk;
}

// Meters ask twice a record: the words of a trace are put together elsewhere.
Status Site::IsHomeAddress(std::uint32_t address, bool* result) {
  if (trace_ != nullptr) TraceHomeAddress(address);
  *result = settings_.home.Contains(address);
  return kStatusOk;
}

void Site::TraceHomeAddress(std::uint32_t address) const {
  trace_->Call("IsHomeAddress {:08X}", address);
}

Status Site::GetHomeNetworks(int* count, std::uint32_t** addresses, std::uint32_t** masks) {
  if (trace_ != nullptr) trace_->Call("GetHomeNetworks");
  const std::vector<Network>& networks = settings_.home.ipv4_networks();
  *count = static_cast<int>(networks.size());
  *addresses = new std::uint32_t[networks.size()];
  *masks = new std::uint32_t[networks.size()];
  for (std::size_t i = 0; i < networks.size(); ++i) {
    (*addresses)[i] = networks[i].address.AsIpv4();
    (*masks)[i] = networks[i].Ipv4Mask();
  }
  return kStatusOk;
}

Status Site::GetInstanceNumber(long* number) {
  if (trace_ != nullptr) trace_->Call("GetInstanceNumber");
  *number = instance_;
  return kStatusOk;
}

Status Site::GetWorkDirectory(char** path) {
  if (trace_ != nullptr) trace_->Call("GetWorkDirectory");
  const std::string directory = settings_.work_directory.string();
  *path = directory.empty() ? nullptr : kit::GiveText(directory);
  return kStatusOk;
}

}  // namespace flow::host
