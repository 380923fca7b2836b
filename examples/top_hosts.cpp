// SPDX-License-Identifier: Apache-2.0
// The hosts with the most bytes in a capture, by the host kit.
//
//   top_hosts POLICIES CAPTURE
#include <flowhandlers/counter_groups.h>
#include <flowhandlers/kit.h>

#include <algorithm>
#include <map>

#include "capture.h"

// The engine adds up what it wants of all that the meters tell.
class Hosts : public flow::kit::Engine {
 public:
  void OnCounter(const GUID& group, std::string_view key, int meter, std::uint64_t value) override {
    if (group == COUNTERID_HOSTS && meter == flow::hosts::kBytes) bytes_[std::string(key)] += value;
  }

  void Print(std::size_t count) const {
    std::vector<std::pair<std::uint64_t, std::string>> rows;
    for (const auto& [key, bytes] : bytes_) rows.emplace_back(bytes, key);
    std::sort(rows.rbegin(), rows.rend());
    for (std::size_t i = 0; i < std::min(count, rows.size()); ++i) {
      unsigned parts[4];
      std::sscanf(rows[i].second.c_str(), "%x.%x.%x.%x", &parts[0], &parts[1], &parts[2],
                  &parts[3]);
      std::printf("%u.%u.%u.%u %llu\n", parts[0], parts[1], parts[2], parts[3],
                  static_cast<unsigned long long>(rows[i].first));
    }
  }

 private:
  std::map<std::string, std::uint64_t> bytes_;
};

int main(int argc, char** argv) {
  flow::kit::Plugin plugin;
  std::FILE* const capture = argc == 3 ? open_capture(argv[2]) : nullptr;
  if (capture == nullptr || !plugin.Open(FLOWHANDLERS_PLUGIN)) return 1;
  flow::kit::SiteSettings settings;
  settings.policy_directory = argv[1];
  flow::kit::Site site(settings);
  flow::kit::Meters meters;  // ends before site and plug-in
  if (!meters.Attach(plugin, site)) return 1;
  Hosts hosts;
  flow::kit::Datagram packet;
  static datagram read;
  while (next_datagram(capture, &read) != 0) {
    using flow::kit::Protocol;
    packet.Set({read.source, read.source_port}, {0, read.destination_port}, read.payload,
               read.length);
    hosts.SetTime(read.seconds);
    meters.Handle(
        read.destination_port == flow::kit::kSFlowPort ? Protocol::kSFlow : Protocol::kNetflow,
        packet, hosts);
  }
  std::fclose(capture);
  hosts.Print(10);
}
