// SPDX-License-Identifier: Apache-2.0
#include "host/period/silence_watch.h"

#include <fmt/format.h>

#include <algorithm>
#include <span>

#include "host/base/number_text.h"

namespace flow::host {
namespace {

// The time alone, unless that could be of several days.
std::string LastText(Timestamp last, Timestamp after) {
  constexpr Timestamp kDay = Timestamp{86400} * kMicrosPerSecond;
  const std::string text = TimeText(last / kMicrosPerSecond);
  return after < kDay ? text.substr(text.find(' ') + 1) : text;
}

}  // namespace

void SilenceWatch::Take(Timestamp now, std::vector<Harvest>& harvests) {
  if (after_ == 0) return;
  if (exporters_.size() >= kMostExporters) {
    absl::erase_if(exporters_, [](const auto& each) { return each.second.is_silent; });
  }
  std::vector<Told> back;
  for (Harvest& harvest : harvests) {
    harvest.exporters.ForEach([&](const ExportSource& source, const ExporterCounts& counts) {
      const bool is_exporter = counts.datagrams > counts.Refused() || counts.dropped > 0;
      // Those that are too many to be told apart have no address.
      if (!is_exporter || source.endpoint.address == IpAddress()) return;
      See(source.endpoint.address, counts.last_seen, &back);
    });
  }
  std::vector<Told> silent;
  for (auto& [address, exporter] : exporters_) {
    if (exporter.is_silent || now - exporter.last < after_) continue;
    exporter.is_silent = true;
    silent.emplace_back(stand_ins_.RealOf(address), exporter.last);
  }
  const std::string nothing = "sent nothing for " + DurationText(after_ / 1000);
  const auto again = [](const Told&) { return std::string("sends again"); };
  const auto since = [&](const Told& told) {
    return fmt::format("has {} (last {})", nothing, LastText(told.second, after_));
  };
  TellAll(std::move(back), again, "others send again");
  TellAll(std::move(silent), since, "others have " + nothing);
}

void SilenceWatch::See(const IpAddress& address, Timestamp time, std::vector<Told>* back) {
  auto known = exporters_.find(address);
  if (known == exporters_.end()) {
    if (exporters_.size() >= kMostExporters) return;
    known = exporters_.try_emplace(address).first;
  }
  Exporter& exporter = known->second;
  if (std::exchange(exporter.is_silent, false))
    back->emplace_back(stand_ins_.RealOf(address), time);
  exporter.last = std::max(exporter.last, time);
}

void SilenceWatch::TellAll(std::vector<Told> exporters,
                           const std::function<std::string(const Told&)>& text,
                           const std::string& of_others) const {
  std::ranges::sort(exporters);
  const std::size_t named = std::min(exporters.size(), kMostTold);
  for (const Told& told : std::span(exporters).first(named)) {
    tell_(fmt::format("{} {}", told.first.Text(), text(told)));
  }
  const std::size_t others = exporters.size() - named;
  if (others > 0) tell_(fmt::format("{} {}", others, of_others));
}

}  // namespace flow::host
