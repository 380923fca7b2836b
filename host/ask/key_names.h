// SPDX-License-Identifier: Apache-2.0
// What addresses, interfaces, AS numbers and ports are called here.
#pragma once

#include <absl/container/flat_hash_map.h>

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "host/ask/dns_names.h"
#include "host/ask/geo_database.h"
#include "host/ask/stored_counters.h"
#include "host/base/endpoint.h"

namespace flow::host {

class KeyNames {
 public:
  // ReadFile takes a file of lines "WHAT NAME", names with blanks or without: "10.0.0.5 backup-1",
  // "10.1.0.0/16 office", "10.0.0.1:3 uplink", "AS64500 example", "8443/tcp console". Lines that
  // begin with # are comments. UsageError names a line that is none of them.
  void ReadFile(const std::string& path);

  // ReadGeo takes a database of countries or AS numbers; each adds to what the others know.
  void ReadGeo(const std::string& path) { geo_.emplace_back(path); }

  // AskDns has addresses without another name asked for in the DNS.
  void AskDns() { asks_dns_ = true; }

  // The names of things; empty where there is none. Of an address its own, else that of the
  // smallest network that has it, else the DNS's; behind it what the databases know.
  [[nodiscard]] std::string OfAddress(const IpAddress& address) const;
  [[nodiscard]] std::string OfInterface(const IpAddress& exporter, std::uint32_t index) const;
  [[nodiscard]] std::string OfAs(std::uint32_t number) const;
  [[nodiscard]] std::string OfPort(std::uint16_t port, std::uint8_t protocol) const;

  // NameOf gives the name of a key as the store writes it: the file's, else the store's.
  [[nodiscard]] std::string NameOf(StoredCounters* counters, const StoredGroup& group,
                                   const std::string& key) const;

 private:
  struct Prefix {
    unsigned length;
    IpAddress address;
    friend auto operator<=>(const Prefix&, const Prefix&) = default;
  };

  bool Learn(std::string_view what, std::string name);
  bool LearnInterface(std::string_view what, const std::string& name);
  bool LearnNumber(std::string_view what, const std::string& name);
  [[nodiscard]] std::string OfNetwork(const IpAddress& address) const;
  [[nodiscard]] std::string WithGeo(const IpAddress& address, std::string name) const;
  [[nodiscard]] std::string FromFile(const std::string& key_kind, const std::string& key) const;

  std::vector<GeoDatabase> geo_;
  bool asks_dns_ = false;
  mutable DnsNames dns_;
  std::map<Prefix, std::string> networks_;  // hosts too
  std::vector<unsigned> lengths_[2];        // of prefixes, by family; longest first
  std::map<std::pair<IpAddress, std::uint32_t>, std::string> interfaces_;
  absl::flat_hash_map<std::uint32_t, std::string> as_numbers_;
  std::map<std::pair<std::uint16_t, int>, std::string> ports_;  // protocol -1: any
};

}  // namespace flow::host
