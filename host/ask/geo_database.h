// SPDX-License-Identifier: Apache-2.0
// Countries and AS numbers of addresses, from a database in the MaxMind format.
#pragma once

#include <maxminddb.h>

#include <memory>
#include <string>

#include "host/base/endpoint.h"

namespace flow::host {

class GeoDatabase {
 public:
  // HostError where the file cannot be read or is no such database.
  explicit GeoDatabase(const std::string& path);

  // "DE", "AS64500 Example Net", or both with a comma; empty where it knows nothing.
  [[nodiscard]] std::string About(const IpAddress& address) const;

 private:
  struct Close {
    void operator()(MMDB_s* database) const;
  };
  std::unique_ptr<MMDB_s, Close> database_;
};

}  // namespace flow::host
