// SPDX-License-Identifier: Apache-2.0
#include "capi/collector.h"

#include <dlfcn.h>
#include <unistd.h>

#include <mutex>

#include "capi/home_networks.h"

namespace flow::capi {
namespace {

constexpr char kPlugin[] = "libflowhandlers.so.1";

// Components are made and ended by one thread at a time, and all come from one loaded plug-in.
std::mutex g_border;
std::weak_ptr<kit::Plugin> g_plugin;

// Beside this library, else wherever the system's loader looks.
std::string DefaultPlugin() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<const void*>(&fh_open), &info) == 0) return kPlugin;
  std::string path(info.dli_fname);
  path.replace(path.rfind('/') + 1, std::string::npos, kPlugin);
  return access(path.c_str(), R_OK) == 0 ? path : kPlugin;
}

std::shared_ptr<kit::Plugin> SharedPlugin(const char* path) {
  std::shared_ptr<kit::Plugin> plugin = g_plugin.lock();
  if (plugin != nullptr) return plugin;
  plugin = std::make_shared<kit::Plugin>();
  if (!plugin->Open(path == nullptr ? DefaultPlugin() : path)) throw Fault(plugin->error());
  g_plugin = plugin;
  return plugin;
}

kit::SiteSettings SettingsOf(const char* policy_directory, const fh_options& options) {
  kit::SiteSettings settings;
  settings.policy_directory = policy_directory;
  if (options.data_directory != nullptr) settings.data_directory = options.data_directory;
  if (options.work_directory != nullptr) settings.work_directory = options.work_directory;
  std::string fault;
  if (options.home_networks != nullptr &&
      !ReadHomeNetworks(options.home_networks, &settings.home, &fault)) {
    throw Fault(fault);
  }
  return settings;
}

}  // namespace

CollectorSite::CollectorSite(kit::SiteSettings settings, Batch& batch)
    : Site(settings), policy_directory_(std::move(settings.policy_directory)), batch_(batch) {}

Status CollectorSite::Log(int level, const char* text) {
  batch_.Log(level, text);
  if (level == kLogError && fault_.empty()) fault_ = text;
  return kStatusOk;
}

Status CollectorSite::PreparePluginConfigFile(const IID& owner, const char* fileName,
                                              char** fullPath) {
  PolicyCopy& copy = owner == CLSID_PI_SFLOWMETER ? sflow_policy_ : netflow_policy_;
  *fullPath = nullptr;
  if (!copy.Take(policy_directory_ + "/" + fileName, &fault_)) return kStatusFailed;
  *fullPath = kit::GiveText(copy.Path());
  return kStatusOk;
}

fh_collector* Open(const char* policy_directory, const fh_callbacks& callbacks,
                   const fh_options& options) {
  kit::SiteSettings settings = SettingsOf(policy_directory, options);
  std::unique_ptr<fh_collector, void (*)(fh_collector*)> collector(nullptr, Close);
  bool attached = false;
  {
    const std::scoped_lock lock(g_border);
    collector.reset(new fh_collector(SharedPlugin(options.plugin), std::move(settings), callbacks));
    attached = collector->meters.Attach(*collector->plugin, collector->site);
  }
  collector->batch.Deliver();
  if (!attached) throw Fault(collector->site.fault());
  return collector.release();
}

void Close(fh_collector* collector) {
  const std::scoped_lock lock(g_border);
  delete collector;
}

}  // namespace flow::capi
