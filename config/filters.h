// SPDX-License-Identifier: Apache-2.0
// Include and exclude filters on exporters' interfaces and on IPv4 hosts, and how the policy's
// lists become them. Addresses are in host byte order.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "flowhandlers/host_interfaces.h"
#include "util/flat_set.h"
#include "util/xmlParser.h"

namespace flow {

// A set of interface keys (as 0A.01.02.03_00000007). Texts that are no such key can never match,
// but they count: a set that holds only those is not empty.
class InterfaceKeySet {
 public:
  void Insert(std::string_view text);
  [[nodiscard]] bool Empty() const noexcept { return texts_ == 0; }
  [[nodiscard]] bool Contains(std::uint32_t exporter, std::uint32_t ifindex) const noexcept {
    return keys_.Contains(std::uint64_t{exporter} << 32 | ifindex);
  }

 private:
  std::size_t texts_ = 0;
  FlatSet<std::uint64_t> keys_;
};

class InterfaceFilter {
 public:
  // Load replaces the filter by the policy's lists and says in the log what it took and what not.
  // False, with an empty filter, when the policy has both lists.
  bool Load(const XMLNode& policy, IOmbrelContainer* site);

  // LoadUnchecked takes every item as it is and logs nothing but the conflict.
  bool LoadUnchecked(const XMLNode& policy, IOmbrelContainer* site);

  // Active tells whether any interface was loaded; only then is Passes of interest.
  [[nodiscard]] bool Active() const noexcept { return fFilterInterfaces; }

  // Passes is false when neither interface is in the include set or both are in the exclude set.
  [[nodiscard]] bool Passes(std::uint32_t exporter, std::uint32_t in_ifindex,
                            std::uint32_t out_ifindex) const noexcept;

 private:
  bool fFilterInterfaces = false;
  InterfaceKeySet FilterInterfacesIncludeSet;
  InterfaceKeySet FilterInterfacesExcludeSet;
};

class HostFilter {
 public:
  // Load replaces the filter by the policy's lists. False, with an empty filter, when the policy
  // has both lists.
  bool Load(const XMLNode& policy, IOmbrelContainer* site);

  [[nodiscard]] bool Active() const noexcept { return fFilterHosts; }

  // Passes is false when neither address is in the include set or both are in the exclude set.
  [[nodiscard]] bool Passes(std::uint32_t source, std::uint32_t destination) const noexcept;

 private:
  bool fFilterHosts = false;
  FlatSet<std::uint32_t> FilterHostsIncludeSet;
  FlatSet<std::uint32_t> FilterHostsExcludeSet;
};

// ListText is the text of a list in the policy, null when the list is absent or has none.
[[nodiscard]] const char* ListText(const XMLNode& policy, const char* key);

// LoadHosts inserts the IPv4 addresses of a comma-separated list. Items that are none are skipped,
// with a message that names the policy key.
void LoadHosts(const char* list, const char* key, IOmbrelContainer* site,
               FlatSet<std::uint32_t>* hosts);

}  // namespace flow
