// SPDX-License-Identifier: Apache-2.0
#include "config/filters.h"

#include <arpa/inet.h>

#include <cstdio>

#include "keys/interface_keys.h"
#include "plugin/site_log.h"
#include "util/str_tokenizer.h"

namespace flow {
namespace {

constexpr char kInterfaceInclude[] = "FilterInterfacesInclude";
constexpr char kInterfaceExclude[] = "FilterInterfacesExclude";
constexpr char kHostInclude[] = "FilterHostsInclude";
constexpr char kHostExclude[] = "FilterHostsExclude";

// The key of an interface that an operator wrote as 10.1.2.3_7; empty for another form. The numbers
// are not checked: one that is out of range gives a key that no interface has, and operators'
// files have such items.
std::string KeyOfReadableInterface(const char* item) {
  int a = 0;
  int b = 0;
  int c = 0;
  int d = 0;
  unsigned int ifindex = 0;
  // NOLINTNEXTLINE(cert-err34-c): sscanf's conversions are what operators' files rely on
  if (std::sscanf(item, "%d.%d.%d.%d_%u", &a, &b, &c, &d, &ifindex) != 5) return {};
  char key[kLooseIntfKeySize];
  MakeLooseIntfKey({a, b, c, d}, ifindex, key);
  return key;
}

void LoadInterface(const char* item, const std::string& key, IOmbrelContainer* site,
                   InterfaceKeySet* interfaces) {
  const std::string text = item;
  if (text.size() == kInterfaceKeyLength) {
    interfaces->Insert(text);
    Log(site, kLogInformation, "Added " + key + " by key " + text);
    return;
  }
  const std::string readable = KeyOfReadableInterface(item);
  if (readable.empty()) {
    Log(site, kLogError, key + " : Invalid interface supplied " + text);
    return;
  }
  interfaces->Insert(readable);
  Log(site, kLogInformation, "Added " + key + " by readable ip_ifindex=" + text + " k=" + readable);
}

// Which of a filter's two lists the policy has.
struct FilterLists {
  const char* include;
  const char* exclude;

  FilterLists(const XMLNode& policy, const char* include_key, const char* exclude_key)
      : include(ListText(policy, include_key)), exclude(ListText(policy, exclude_key)) {}
  [[nodiscard]] bool Conflict() const { return include != nullptr && exclude != nullptr; }
  [[nodiscard]] const char* Text() const { return include != nullptr ? include : exclude; }
};

constexpr char kInterfaceConflict[] =
    "Cant have both include and exclude interface filter in netflow config";
constexpr char kHostConflict[] =
    "Cant have both include and exclude hosts  filter in netflow config";

}  // namespace

const char* ListText(const XMLNode& policy, const char* key) {
  return policy.getChildNode(key).getText();
}

void LoadHosts(const char* list, const char* key, IOmbrelContainer* site,
               FlatSet<std::uint32_t>* hosts) {
  const StrTokenizer items(list, ',');
  for (unsigned long i = 0; i < items.GetCount(); ++i) {
    in_addr address{};
    if (inet_pton(AF_INET, items.GetToken(i), &address) == 1) {
      hosts->Insert(ntohl(address.s_addr));
    } else {
      Log(site, kLogError, std::string(key) + " : Invalid host supplied " + items.GetToken(i));
    }
  }
}

void InterfaceKeySet::Insert(std::string_view text) {
  ++texts_;
  if (const auto key = ParseIntfKey(text)) keys_.Insert(*key);
}

bool InterfaceFilter::Load(const XMLNode& policy, IOmbrelContainer* site) {
  *this = InterfaceFilter();
  const FilterLists lists(policy, kInterfaceInclude, kInterfaceExclude);
  if (lists.Conflict()) {
    Log(site, kLogError, kInterfaceConflict);
    return false;
  }
  if (lists.Text() == nullptr) return true;
  const bool include = lists.include != nullptr;
  InterfaceKeySet& interfaces = include ? FilterInterfacesIncludeSet : FilterInterfacesExcludeSet;
  const std::string key = include ? kInterfaceInclude : kInterfaceExclude;
  const StrTokenizer items(lists.Text(), ',');
  for (unsigned long i = 0; i < items.GetCount(); ++i) {
    LoadInterface(items.GetToken(i), key, site, &interfaces);
  }
  fFilterInterfaces = !interfaces.Empty();
  Log(site, kLogWarning, key + " option active. Only a subset of traffic monitored");
  return true;
}

bool InterfaceFilter::LoadUnchecked(const XMLNode& policy, IOmbrelContainer* site) {
  *this = InterfaceFilter();
  const FilterLists lists(policy, kInterfaceInclude, kInterfaceExclude);
  if (lists.Conflict()) {
    Log(site, kLogError, kInterfaceConflict);
    return false;
  }
  if (lists.Text() == nullptr) return true;
  InterfaceKeySet& interfaces =
      lists.include != nullptr ? FilterInterfacesIncludeSet : FilterInterfacesExcludeSet;
  const StrTokenizer items(lists.Text(), ',');
  for (unsigned long i = 0; i < items.GetCount(); ++i) interfaces.Insert(items.GetToken(i));
  fFilterInterfaces = !interfaces.Empty();
  return true;
}

bool InterfaceFilter::Passes(std::uint32_t exporter, std::uint32_t in_ifindex,
                             std::uint32_t out_ifindex) const noexcept {
  const auto& include = FilterInterfacesIncludeSet;
  const auto& exclude = FilterInterfacesExcludeSet;
  if (!include.Empty() && !include.Contains(exporter, in_ifindex) &&
      !include.Contains(exporter, out_ifindex)) {
    return false;
  }
  return !(exclude.Contains(exporter, in_ifindex) && exclude.Contains(exporter, out_ifindex));
}

bool HostFilter::Load(const XMLNode& policy, IOmbrelContainer* site) {
  *this = HostFilter();
  const FilterLists lists(policy, kHostInclude, kHostExclude);
  if (lists.Conflict()) {
    Log(site, kLogError, kHostConflict);
    return false;
  }
  if (lists.Text() == nullptr) return true;
  const bool include = lists.include != nullptr;
  FlatSet<std::uint32_t>& hosts = include ? FilterHostsIncludeSet : FilterHostsExcludeSet;
  LoadHosts(lists.Text(), include ? kHostInclude : kHostExclude, site, &hosts);
  fFilterHosts = !hosts.Empty();
  return true;
}

bool HostFilter::Passes(std::uint32_t source, std::uint32_t destination) const noexcept {
  const auto& include = FilterHostsIncludeSet;
  const auto& exclude = FilterHostsExcludeSet;
  if (!include.Empty() && !include.Contains(source) && !include.Contains(destination)) {
    return false;
  }
  return !(exclude.Contains(source) && exclude.Contains(destination));
}

}  // namespace flow
