// SPDX-License-Identifier: Apache-2.0
#include "host/command/store_line.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <charconv>
#include <optional>

#include "host/command/argument_checks.h"

namespace flow::host {
namespace {

constexpr std::string_view kFlows = "flows";

// The number of "hour=60", for the tier's place; that of flows is behind the tiers. The text is
// what is wrong.
struct Setting {
  std::size_t place = 0;
  std::uint64_t number = 0;
};
std::string Parse(const std::string& text, bool has_flows, std::uint64_t least, std::uint64_t most,
                  Setting* setting) {
  const std::size_t equals = text.find('=');
  const std::string_view name = std::string_view(text).substr(0, equals);
  setting->place = 0;
  while (setting->place < std::size(kTiers) && kTiers[setting->place].name != name) {
    ++setting->place;
  }
  if (setting->place == std::size(kTiers) && (!has_flows || name != kFlows)) {
    return fmt::format("'{}' is none of minute, hour, day{}", name, has_flows ? ", flows" : "");
  }
  const char* const end = text.data() + text.size();
  const char* const digits = equals == std::string::npos ? end : text.data() + equals + 1;
  const auto [stop, error] = std::from_chars(digits, end, setting->number);
  if (error == std::errc() && stop == end && setting->number >= least && setting->number <= most) {
    return "";
  }
  return fmt::format("'{}' needs a number from {} to {}, as in hour=60", text, least, most);
}

// An option that may come once for each tier.
template <class Use>
void AddSetting(CLI::App* app, const char* name, const char* help, const char* type, bool has_flows,
                std::uint64_t least, std::uint64_t most, Use use) {
  const auto check = [=](const std::string& text) {
    Setting setting;
    return Parse(text, has_flows, least, most, &setting);
  };
  app->add_option_function<std::vector<std::string>>(
         name,
         [=](const std::vector<std::string>& texts) {
           for (const std::string& text : texts) {
             Setting setting;
             Parse(text, has_flows, least, most, &setting);
             use(setting);
           }
         },
         help)
      ->type_name(type)
      ->allow_extra_args(false)
      ->check(check);
}

}  // namespace

void AddStoreOptions(CLI::App* app, StoreOptions* options) {
  app->add_option("--store", options->directory,
                  "Keep counters by minute, hour and day, and every flow, in this directory; "
                  "docs/store.md has the form")
      ->type_name("DIR");
  constexpr std::uint64_t kMostDays = 36500;
  AddSetting(app, "--store-keep",
             "How many days the rows of a tier, or flows, are kept; 0 for ever; repeatable "
             "(default: minute=2, hour=60, day=1830, flows=3; replay keeps all)",
             "WHAT=DAYS", true, 0, kMostDays, [options](const Setting& setting) {
               const auto seconds = static_cast<std::int64_t>(setting.number) * kDaySeconds;
               const bool is_flows = setting.place == std::size(kTiers);
               (is_flows ? options->keep_flows_seconds : options->keep_seconds[setting.place]) =
                   seconds;
             });
  constexpr std::uint64_t kMostKeys = 100'000;
  AddSetting(app, "--store-keys",
             "How many keys of a group have rows of their own in a span of a tier; the others are "
             "one; repeatable (default: minute=250, hour=1000, day=1000)",
             "TIER=N", false, 1, kMostKeys, [options](const Setting& setting) {
               options->kept_keys[setting.place] = setting.number;
             });
  app->add_option("--store-limit", options->most_flow_bytes,
                  "How large all files of flows may be, as in 500M or 20G; then the oldest are "
                  "deleted; 0 for no limit (default: 20G; replay has none)")
      ->type_name("BYTES")
      ->transform(CLI::AsSizeValue(true))
      ->transform(NotNegative());
}

}  // namespace flow::host
