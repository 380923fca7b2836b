// SPDX-License-Identifier: Apache-2.0
#include "host/intake/stand_ins.h"

#include <absl/strings/str_split.h>
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <utility>

#include "host/base/error.h"

namespace flow::host {
namespace {

constexpr std::uint32_t kMask = 0xFF000000;

// A line is stand-in, real address and the time when it was last seen.
constexpr std::string_view kFormat = "flowhost stand-ins 1";

}  // namespace

bool StandIns::IsOne(const IpAddress& address) {
  return address.family() == Family::kIpv4 && (address.AsIpv4() & kMask) == kNetwork;
}

std::optional<IpAddress> StandIns::Of(const IpAddress& real, std::int64_t now) {
  constexpr std::int64_t kDay = 86400;
  const std::lock_guard lock(mutex_);
  const auto known = by_real_.find(real);
  if (known != by_real_.end()) {
    Entry& entry = known->second;
    entry.seen = std::max(entry.seen, now);
    has_news_ = has_news_ || entry.seen > entry.written + kDay;
    return entry.stand_in;
  }
  constexpr std::uint32_t kLast = kNetwork | (~kMask - 1);
  if (by_real_.size() >= kMost || last_ >= kLast) return std::nullopt;
  const IpAddress stand_in = IpAddress::Ipv4(++last_);
  by_real_[real] = {stand_in, now, 0};
  reals_[stand_in] = real;
  has_news_ = true;
  return stand_in;
}

IpAddress StandIns::RealOf(const IpAddress& address) const {
  if (!IsOne(address)) return address;
  const std::lock_guard lock(mutex_);
  const auto known = reals_.find(address);
  return known == reals_.end() ? address : known->second;
}

IpAddress StandIns::Find(const IpAddress& real) const {
  if (real.family() == Family::kIpv4) return real;
  const std::lock_guard lock(mutex_);
  const auto known = by_real_.find(real);
  return known == by_real_.end() ? real : known->second.stand_in;
}

bool StandIns::ReadLine(const std::string& line, std::int64_t now) {
  const std::vector<std::string> fields = absl::StrSplit(line, ' ');
  if (fields.size() != 3) return false;
  const auto stand_in = IpAddress::Parse(fields[0]);
  const auto real = IpAddress::Parse(fields[1]);
  std::int64_t seen = 0;
  const char* const end = fields[2].data() + fields[2].size();
  if (!stand_in || !IsOne(*stand_in) || !real || real->family() != Family::kIpv6 ||
      std::from_chars(fields[2].data(), end, seen).ptr != end || fields[2].empty() ||
      by_real_.size() >= kMost || by_real_.contains(*real) || reals_.contains(*stand_in)) {
    return false;
  }
  last_ = std::max(last_, stand_in->AsIpv4());
  if (seen < now - kLongestSeconds) return true;
  seen = std::min(seen, now);  // of a clock that was ahead
  by_real_[*real] = {*stand_in, seen, seen};
  reals_[*stand_in] = *real;
  return true;
}

void StandIns::KeepIn(const std::string& directory, std::int64_t now, std::string* trouble) {
  const std::lock_guard lock(mutex_);
  file_.emplace(directory, "stand-ins", kFormat);
  const auto take = [&](const std::string& line) { return ReadLine(line, now); };
  has_news_ = !file_->Load(now, take, trouble) && !trouble->empty();
}

std::vector<std::string> StandIns::TakeLines() {
  std::vector<std::pair<IpAddress, std::string>> lines;
  for (auto& [real, entry] : by_real_) {
    entry.written = entry.seen;
    lines.emplace_back(entry.stand_in,
                       fmt::format("{} {} {}", entry.stand_in.Text(), real.Text(), entry.seen));
  }
  std::ranges::sort(lines);
  std::vector<std::string> texts;
  for (auto& [stand_in, text] : lines) texts.push_back(std::move(text));
  return texts;
}

void StandIns::Save() {
  std::vector<std::string> lines;
  {
    const std::lock_guard lock(mutex_);
    if (!file_ || !std::exchange(has_news_, false)) return;
    lines = TakeLines();
  }
  if (file_->Save(lines)) return;
  const int reason = errno;
  const std::lock_guard lock(mutex_);
  has_news_ = true;
  throw HostError(fmt::format("exporters of IPv6 cannot be kept in {}: {}", file_->path(),
                              std::strerror(reason)));
}

}  // namespace flow::host
