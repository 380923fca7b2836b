// SPDX-License-Identifier: Apache-2.0
// Exporters that have stopped sending, and those that send again.
#pragma once

#include <absl/container/flat_hash_map.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "host/intake/lane.h"
#include "host/intake/stand_ins.h"

namespace flow::host {

class SilenceWatch {
 public:
  using Tell = std::function<void(const std::string& text)>;

  // Whoever has sent nothing for so long is silent; 0 for nobody. All outlive the watch.
  SilenceWatch(Timestamp after, const StandIns& stand_ins, Tell tell)
      : after_(after), stand_ins_(stand_ins), tell_(std::move(tell)) {}

  // Take takes what lanes have counted until now, and tells, once, who has fallen silent by now and
  // who is back. An exporter is an address, whatever its port, that has sent something to meter.
  void Take(Timestamp now, std::vector<Harvest>& harvests);

  // So many are told by their names each time: a cable that is pulled silences all of them.
  static constexpr std::size_t kMostTold = 10;
  static constexpr std::size_t kMostExporters = std::size_t{1} << 16;

 private:
  struct Exporter {
    Timestamp last = 0;
    bool is_silent = false;
  };
  using Told = std::pair<IpAddress, Timestamp>;  // who, by the real address, and when last seen

  void See(const IpAddress& address, Timestamp time, std::vector<Told>* back);
  void TellAll(std::vector<Told> exporters, const std::function<std::string(const Told&)>& text,
               const std::string& of_others) const;

  Timestamp after_;
  const StandIns& stand_ins_;
  Tell tell_;
  absl::flat_hash_map<IpAddress, Exporter> exporters_;
};

}  // namespace flow::host
