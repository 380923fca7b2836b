// SPDX-License-Identifier: Apache-2.0
#include "host/ask/dns_names.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <thread>

namespace flow::host {
namespace {

// The thread that asks may outlast who waits.
struct Lookup {
  std::mutex mutex;
  std::condition_variable ended;
  bool has_ended = false;
  std::string name;
};

std::string Resolve(const IpAddress& address) {
  sockaddr_storage place{};
  socklen_t size = sizeof(sockaddr_in);
  if (address.family() == Family::kIpv4) {
    auto* const in = reinterpret_cast<sockaddr_in*>(&place);
    in->sin_family = AF_INET;
    in->sin_addr.s_addr = htonl(address.AsIpv4());
  } else {
    auto* const in = reinterpret_cast<sockaddr_in6*>(&place);
    size = sizeof(sockaddr_in6);
    in->sin6_family = AF_INET6;
    std::memcpy(&in->sin6_addr, address.bytes().data(), sizeof(in->sin6_addr));
  }
  std::array<char, NI_MAXHOST> name{};
  const int failed = getnameinfo(reinterpret_cast<const sockaddr*>(&place), size, name.data(),
                                 name.size(), nullptr, 0, NI_NAMEREQD);
  return failed == 0 ? name.data() : "";
}

}  // namespace

std::string DnsNames::NameOf(const IpAddress& address) {
  const auto known = known_.find(address);
  if (known != known_.end()) return known->second;
  if (left_ <= std::chrono::milliseconds::zero()) return "";
  const auto start = std::chrono::steady_clock::now();
  const auto lookup = std::make_shared<Lookup>();
  std::thread([lookup, address] {
    std::string name = Resolve(address);
    const std::lock_guard lock(lookup->mutex);
    lookup->name = std::move(name);
    lookup->has_ended = true;
    lookup->ended.notify_one();
  }).detach();
  constexpr std::chrono::milliseconds kPatience{1000};
  std::unique_lock lock(lookup->mutex);
  lookup->ended.wait_for(lock, std::min(kPatience, left_), [&] { return lookup->has_ended; });
  left_ -= std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                 start);
  return known_[address] = lookup->name;
}

}  // namespace flow::host
