// SPDX-License-Identifier: Apache-2.0
#include "host/command/progress.h"

#include <fmt/format.h>

#include "host/base/console.h"
#include "host/base/number_text.h"
#include "host/base/printable.h"

namespace flow::host {
namespace {

constexpr auto kFirst = std::chrono::milliseconds(1000);  // short replays show nothing
constexpr auto kEvery = std::chrono::milliseconds(250);

}  // namespace

Progress::Progress(Console& console) : console_(console), next_(start_ + kFirst) {}

bool Progress::IsTime() const { return console_.IsTerminal() && Clock::now() >= next_; }

void Progress::Show(const std::string& path, double position, std::uint64_t records) {
  next_ = Clock::now() + kEvery;
  const auto rate = static_cast<std::uint64_t>(static_cast<double>(records) / Seconds());
  console_.Progress(fmt::format("{}: {:.0f}%, {} records, {} a second", Printable(path),
                                position * 100, Thousands(records), Thousands(rate)));
}

double Progress::Seconds() const {
  return std::chrono::duration<double>(Clock::now() - start_).count();
}

}  // namespace flow::host
