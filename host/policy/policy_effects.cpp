// SPDX-License-Identifier: Apache-2.0
#include "host/policy/policy_effects.h"

#include <absl/strings/ascii.h>
#include <absl/strings/match.h>
#include <absl/strings/str_split.h>
#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "flowhandlers/counter_keys.h"
#include "host/policy/default_policies.h"

namespace flow::host {
namespace {

// What becomes of an item of a list.
enum class Item {
  kTaken,
  kSkipped,  // the plug-in says so
  kNever,    // taken, and nothing is ever called that
};

bool IsInterfaceKey(std::string_view item) {
  constexpr std::string_view kForm = "00.00.00.00_00000000";
  static_assert(kForm.size() == kInterfaceKeyLength);
  return std::ranges::equal(item, kForm, [](unsigned char c, unsigned char form) {
    return form == '0' ? absl::ascii_isxdigit(c) && !absl::ascii_islower(c) : c == form;
  });
}

Item ReadHost(const std::string& item) {
  in_addr address{};
  return inet_pton(AF_INET, item.c_str(), &address) == 1 ? Item::kTaken : Item::kSkipped;
}

// What has the length of a key is one for the plug-in.
Item ReadInterface(const std::string& item) {
  if (item.size() == kInterfaceKeyLength) {
    return IsInterfaceKey(item) ? Item::kTaken : Item::kNever;
  }
  int octets[4];
  unsigned ifindex = 0;
  if (std::sscanf(item.c_str(), "%d.%d.%d.%d_%u", &octets[0], &octets[1], &octets[2], &octets[3],
                  &ifindex) != 5) {
    return Item::kSkipped;
  }
  const bool in_range = std::ranges::all_of(octets, [](int o) { return o >= 0 && o <= 255; });
  return in_range ? Item::kTaken : Item::kNever;
}

Item ReadInterfaceKey(const std::string& item) {
  return IsInterfaceKey(item) ? Item::kTaken : Item::kNever;
}

// In base 16 and 8 too; a word counts as 0.
Item ReadAsNumber(const std::string& item) {
  char* end = nullptr;
  std::strtoul(item.c_str(), &end, 0);
  return end != item.c_str() ? Item::kTaken : Item::kSkipped;
}

struct List {
  std::string_view file_name;
  std::string_view key;
  Item (*read)(const std::string& item);
  std::string_view what;     // its items are
  std::string_view without;  // what follows where none is
  std::string_view never;    // and where those that were taken are never met
};

constexpr std::string_view kHost = "an IPv4 address";
constexpr std::string_view kInterface = "an interface";
constexpr std::string_view kKey = "the key of an interface, as in 0A.00.00.01_00000003";
constexpr std::string_view kAll = "nothing is filtered";
constexpr List kLists[] = {
    {kNetflowPolicyFile, "FilterInterfacesInclude", ReadInterface, kInterface, kAll,
     "no flow is metered"},
    {kNetflowPolicyFile, "FilterInterfacesExclude", ReadInterface, kInterface, kAll, kAll},
    {kNetflowPolicyFile, "FilterHostsInclude", ReadHost, kHost, kAll, kAll},
    {kNetflowPolicyFile, "FilterHostsExclude", ReadHost, kHost, kAll, kAll},
    {kNetflowPolicyFile, "IgnoreV9EgressFromDevices", ReadHost, kHost, "no counts are ignored", ""},
    {kNetflowPolicyFile, "HomeASNumbers", ReadAsNumber, "a number", "each counts as 0", ""},
    {kSFlowPolicyFile, "FilterInterfacesInclude", ReadInterfaceKey, kKey, kAll,
     "no sample is metered"},
    {kSFlowPolicyFile, "FilterInterfacesExclude", ReadInterfaceKey, kKey, kAll, kAll},
    {kSFlowPolicyFile, "FilterHostsInclude", ReadHost, kHost, kAll, kAll},
    {kSFlowPolicyFile, "FilterHostsExclude", ReadHost, kHost, kAll, kAll},
};

void CheckList(const List& list, const std::string& text, const TellEffect& tell) {
  bool is_taken = false;
  bool is_never = false;
  const std::vector<std::string> items = absl::StrSplit(text, ',', absl::SkipEmpty());
  for (const std::string& item : items) {
    const Item read = list.read(item);
    is_taken = is_taken || read == Item::kTaken;
    if (read != Item::kNever) continue;
    is_never = true;
    tell(list.key,
         fmt::format("{}: no interface has the key {}{}", list.key, item,
                     item.size() == kInterfaceKeyLength ? " (20 characters are one)" : ""));
  }
  if (is_taken) return;
  tell(list.key, fmt::format("no item of {} is {}; {}", list.key, list.what,
                             is_never ? list.never : list.without));
}

// The settings of a file, those that it does not have at their defaults.
class Settings {
 public:
  Settings(std::string_view file_name, const PolicyTexts& texts)
      : settings_(PolicySettings(file_name)), texts_(texts) {}

  [[nodiscard]] std::string Text(std::string_view key) const {
    const auto found = texts_.find(key);
    if (found != texts_.end() && !found->second.empty()) return found->second;
    const auto setting = std::ranges::find(settings_, key, &PolicySetting::key);
    return std::string(setting == settings_.end() ? "" : setting->absent);
  }
  [[nodiscard]] bool Has(std::string_view key) const { return !Text(key).empty(); }
  [[nodiscard]] bool On(std::string_view key) const {
    return absl::EqualsIgnoreCase(Text(key), "true");
  }
  [[nodiscard]] long Number(std::string_view key) const {
    return std::strtol(Text(key).c_str(), nullptr, 10);
  }

 private:
  std::span<const PolicySetting> settings_;
  const PolicyTexts& texts_;
};

// Of two settings the one that is without effect. The policies that flowhost writes have
// application tags beside both ports, which counts no tag: whoever turns MeterBothPorts off wants
// them.
struct Conflict {
  std::string_view key;
  bool (*is_there)(const Settings& all);
  std::string_view remark;
};
constexpr Conflict kNetflowConflicts[] = {
    {"MeterLinkAS",
     [](const Settings& all) { return all.On("MeterLinkAS") && !all.On("MeterNetflowInterfaces"); },
     "MeterLinkAS counts nothing while MeterNetflowInterfaces is off"},
    {"MeterApplications",
     [](const Settings& all) {
       return all.On("MeterNBAR") && !all.On("MeterBothPorts") && !all.On("MeterApplications");
     },
     "MeterNBAR counts nothing while MeterApplications is off"},
    {"TagFlowsWithUserID",
     [](const Settings& all) { return all.On("TagFlowsWithUserID") && !all.On("MeterZeroFlows"); },
     "TagFlowsWithUserID has no effect while MeterZeroFlows is off"},
    {"IgnoreAllEgress",
     [](const Settings& all) { return all.On("IgnoreAllEgress") && all.On("KeepEgressRecords"); },
     "KeepEgressRecords keeps nothing while IgnoreAllEgress is on"},
    // A record without bytes counts as one packet of one byte and the layer-2 bytes.
    {"CheckPacketsForCorruption",
     [](const Settings& all) {
       return all.On("MeterZeroFlows") && all.On("CheckPacketsForCorruption") &&
              all.Number("AddL2AccountingBytes") < 7;
     },
     "records without bytes, which MeterZeroFlows wants, are dropped while "
     "CheckPacketsForCorruption is on"},
    {"HomeASNumbersFile",
     [](const Settings& all) { return all.Has("HomeASNumbersFile") && !all.Has("HomeASNumbers"); },
     "HomeASNumbersFile has no effect while HomeASNumbers lists no number"},
};

}  // namespace

bool IsOn(std::string_view file_name, const PolicyTexts& texts, std::string_view key) {
  return Settings(file_name, texts).On(key);
}

void CheckPolicyEffects(std::string_view file_name, const PolicyTexts& texts,
                        const TellEffect& tell) {
  for (const List& list : kLists) {
    if (list.file_name != file_name) continue;
    const auto found = texts.find(list.key);
    if (found != texts.end() && !found->second.empty()) CheckList(list, found->second, tell);
  }
  if (file_name != kNetflowPolicyFile) return;
  const Settings all(file_name, texts);
  for (const Conflict& conflict : kNetflowConflicts) {
    if (conflict.is_there(all)) tell(conflict.key, std::string(conflict.remark));
  }
}

}  // namespace flow::host
