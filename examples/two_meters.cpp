// SPDX-License-Identifier: Apache-2.0
// All bytes of a capture, metered by two that share the work and teach each other templates.
//
//   two_meters POLICIES CAPTURE
#include <flowhandlers/counter_groups.h>
#include <flowhandlers/kit.h>

#include "capture.h"

// What one meter counts into. Templates that it learns go to the other.
class Half : public flow::kit::Engine {
 public:
  Half(const flow::kit::Plugin& plugin, const flow::kit::SiteSettings& settings) : site_(settings) {
    works_ = meters_.Attach(plugin, site_);
  }

  void OnCounter(const GUID& group, std::string_view key, int meter, std::uint64_t value) override {
    if (group == COUNTERID_AGGREGATES && key == "TOTALBW" && meter == flow::totals::kBytes)
      bytes += value;
  }
  void OnRecord() override { ++records; }
  void OnMessage(const GUID& channel, void* data, std::uint32_t length) override {
    other->meters_.Deliver(channel, data, length);
  }

  bool works() const { return works_; }
  void Handle(const datagram& read) {
    packet_.Set({read.source, read.source_port}, {0, read.destination_port}, read.payload,
                read.length);
    SetTime(read.seconds);
    meters_.Handle(flow::kit::Protocol::kNetflow, packet_, *this);
  }

  Half* other = nullptr;
  unsigned long long bytes = 0;
  unsigned long long records = 0;

 private:
  flow::kit::Site site_;
  flow::kit::Datagram packet_;
  flow::kit::Meters meters_;
  bool works_ = false;
};

int main(int argc, char** argv) {
  flow::kit::Plugin plugin;
  std::FILE* const capture = argc == 3 ? open_capture(argv[2]) : nullptr;
  if (capture == nullptr || !plugin.Open(FLOWHANDLERS_PLUGIN)) return 1;
  flow::kit::SiteSettings settings;
  settings.policy_directory = argv[1];
  Half halves[2] = {{plugin, settings}, {plugin, settings}};
  if (!halves[0].works() || !halves[1].works()) return 1;
  for (int i = 0; i < 2; ++i) halves[i].other = &halves[1 - i];
  static datagram read;
  for (int i = 0; next_datagram(capture, &read) != 0; ++i) halves[i % 2].Handle(read);
  std::fclose(capture);
  std::printf("%llu bytes, %llu records\n", halves[0].bytes + halves[1].bytes,
              halves[0].records + halves[1].records);
}
