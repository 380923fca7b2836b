// SPDX-License-Identifier: Apache-2.0
// The site: what a component may ask its host.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <string>
#include <vector>

#include "flowhandlers/host_interfaces.h"
#include "flowhandlers/kit/host_object.h"
#include "flowhandlers/kit/interface_ptr.h"

namespace flow::kit {

// A network of IPv4, host byte order.
struct Network {
  std::uint32_t address;
  std::uint32_t mask;
};

// What a site answers with. An empty directory is none.
struct SiteSettings {
  std::string policy_directory;
  std::string data_directory;  // feeds of home AS numbers
  std::string work_directory;  // dumps of templates
  std::vector<Network> home = {
      {0x0A000000, 0xFF000000}, {0xAC100000, 0xFFF00000}, {0xC0A80000, 0xFFFF0000}};
  long instance = 1;  // in the names of dumps
};

// A site that outlives the components attached to it.
class Site : public HostObject<IOmbrelContainer, IID_IOmbrelContainer> {
 public:
  explicit Site(SiteSettings settings) : settings_(std::move(settings)) {}

  // Log takes a message of the plug-in; levels are those of flowhandlers/host_interfaces.h.
  Status Log(int /*level*/, const char* /*text*/) override { return kStatusOk; }

  Status GetDataDirectory(char** path) override { return Give(settings_.data_directory, path); }
  Status GetWorkDirectory(char** path) override { return Give(settings_.work_directory, path); }

  // A policy that is there but broken ends the process: check those that people edit.
  Status PreparePluginConfigFile(const IID& /*owner*/, const char* fileName,
                                 char** fullPath) override {
    const std::string path = settings_.policy_directory + "/" + fileName;
    *fullPath = nullptr;
    if (access(path.c_str(), R_OK) != 0) return kStatusFailed;
    return Give(path, fullPath);
  }

  Status IsHomeAddress(std::uint32_t address, bool* result) override {
    *result = false;
    for (const Network& network : settings_.home) {
      if ((address & network.mask) == network.address) *result = true;
    }
    return kStatusOk;
  }

  Status GetHomeNetworks(int* count, std::uint32_t** addresses, std::uint32_t** masks) override {
    const std::size_t size = settings_.home.size();
    *count = static_cast<int>(size);
    *addresses = new std::uint32_t[size];
    *masks = new std::uint32_t[size];
    for (std::size_t i = 0; i < size; ++i) {
      (*addresses)[i] = settings_.home[i].address;
      (*masks)[i] = settings_.home[i].mask;
    }
    return kStatusOk;
  }

  Status GetInstanceNumber(long* number) override {
    *number = settings_.instance;
    return kStatusOk;
  }

 private:
  static Status Give(const std::string& text, char** out) {
    *out = text.empty() ? nullptr : GiveText(text);
    return kStatusOk;
  }

  SiteSettings settings_;
};

}  // namespace flow::kit
