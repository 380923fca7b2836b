// SPDX-License-Identifier: Apache-2.0
#include "host/ask/geo_database.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netinet/in.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

#include "host/base/error.h"
#include "host/base/files.h"

namespace flow::host {
namespace {

// The value that a path of names leads to; false where there is none of the type.
template <class... Names>
bool Get(MMDB_entry_s* entry, std::uint32_t type, MMDB_entry_data_s* data, Names... names) {
  return MMDB_get_value(entry, data, names..., nullptr) == MMDB_SUCCESS && data->has_data &&
         data->type == type;
}

std::string TextOf(const MMDB_entry_data_s& data) { return {data.utf8_string, data.data_size}; }

}  // namespace

GeoDatabase::GeoDatabase(const std::string& path) {
  if (!std::filesystem::is_regular_file(path) && std::filesystem::exists(path)) {
    throw HostError(fmt::format("{}: {}", path, FileTrouble(ENOTSUP)));
  }
  auto opened = std::make_unique<MMDB_s>();
  const int result = MMDB_open(path.c_str(), MMDB_MODE_MMAP, opened.get());
  if (result != MMDB_SUCCESS) {
    throw HostError(fmt::format("{}: {}", path, MMDB_strerror(result)));
  }
  database_.reset(opened.release());
}

void GeoDatabase::Close::operator()(MMDB_s* database) const {
  MMDB_close(database);
  delete database;
}

std::string GeoDatabase::About(const IpAddress& address) const {
  sockaddr_storage place{};
  if (address.family() == Family::kIpv4) {
    auto* const in = reinterpret_cast<sockaddr_in*>(&place);
    in->sin_family = AF_INET;
    in->sin_addr.s_addr = htonl(address.AsIpv4());
  } else {
    auto* const in = reinterpret_cast<sockaddr_in6*>(&place);
    in->sin6_family = AF_INET6;
    std::memcpy(&in->sin6_addr, address.bytes().data(), sizeof(in->sin6_addr));
  }
  int error = MMDB_SUCCESS;
  MMDB_lookup_result_s found =
      MMDB_lookup_sockaddr(database_.get(), reinterpret_cast<const sockaddr*>(&place), &error);
  if (error != MMDB_SUCCESS || !found.found_entry) return "";
  std::string about;
  MMDB_entry_data_s data{};
  if (Get(&found.entry, MMDB_DATA_TYPE_UTF8_STRING, &data, "country", "iso_code")) {
    about = TextOf(data);
  }
  if (Get(&found.entry, MMDB_DATA_TYPE_UINT32, &data, "autonomous_system_number")) {
    about += fmt::format("{}AS{}", about.empty() ? "" : ", ", data.uint32);
  }
  if (Get(&found.entry, MMDB_DATA_TYPE_UTF8_STRING, &data, "autonomous_system_organization")) {
    about += (about.empty() ? "" : " ") + TextOf(data);
  }
  return about;
}

}  // namespace flow::host
