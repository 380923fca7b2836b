// SPDX-License-Identifier: Apache-2.0
#include "host/base/console.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

#include "flowhandlers/host_interfaces.h"
#include "host/base/number_text.h"
#include "host/base/printable.h"

namespace flow::host {
namespace {

constexpr std::size_t kMostLines = 1000;    // that wait to be written
constexpr std::size_t kLongestText = 1000;  // of a message among them

std::string_view LevelName(int level) {
  switch (level) {
    case kLogError:
      return "error";
    case kLogWarning:
      return "warning";
    case kLogProgress:
      return "progress";
    default:
      return "information";
  }
}

// Whoever has closed standard error wants no lines.
void WriteLine(std::string_view line) {
  while (!line.empty()) {
    const ssize_t written = write(STDERR_FILENO, line.data(), line.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    line.remove_prefix(static_cast<std::size_t>(written));
  }
}

}  // namespace

Console::Console(int log_level) : log_level_(log_level), is_terminal_(isatty(STDERR_FILENO) != 0) {}

Console::~Console() {
  constexpr std::chrono::seconds kPatience(2);
  if (writer_ && !FinishBy(Clock::now() + kPatience)) writer_->Abandon();
  EndRepeats();
}

void Console::Queue() { writer_.emplace("standard error", kMostLines); }

void Console::Error(std::string_view text) { Notice(text); }

void Console::Notice(std::string_view text) {
  const std::lock_guard lock(mutex_);
  Line(fmt::format("flowhost: {}", Printable(text)));
}

void Console::Log(std::string_view component, int level, std::string_view text,
                  const IpAddress* exporter) {
  if (level <= kLogWarning) ++warnings_;
  if (level > log_level_) return;
  LogMessage message{component, LevelName(level), text, exporter};
  if (writer_) {
    message.text = text.substr(0, kLongestText);
    const std::lock_guard lock(mutex_);
    if (limit_.Take(message, Clock::now())) Line(LogLine(message));
    return;
  }
  std::string line = LogLine(message);
  const std::lock_guard lock(mutex_);
  if (line == last_log_) {
    ++repeats_;
    return;
  }
  Line(line);
  last_log_ = std::move(line);
}

void Console::EndRepeats() {
  last_log_.clear();
  if (repeats_ > 0) Write(fmt::format("(and {} times more)", std::exchange(repeats_, 0)));
}

void Console::Sum() {
  const std::lock_guard lock(mutex_);
  SumAt(Clock::now(), false);
}

void Console::SumAt(Clock::time_point now, bool at_end) {
  if (!writer_) return;
  for (const std::string& line : limit_.Summaries(now, at_end)) Line(line);
  const std::uint64_t lost = writer_->Dropped() - lost_told_;
  if (lost == 0 || writer_->Waiting() >= kMostLines) return;
  lost_told_ += lost;
  Line(fmt::format("flowhost: {} lines were lost here: nobody took them", Thousands(lost)));
}

bool Console::FinishBy(Clock::time_point deadline) {
  if (!writer_) return true;
  {
    const std::lock_guard lock(mutex_);
    SumAt(Clock::now(), true);
  }
  return writer_->FinishBy(deadline);
}

Console::Clock::duration Console::Stuck() const {
  return writer_ ? writer_->Busy() : Clock::duration::zero();
}

std::uint64_t Console::Lost() const { return writer_ ? writer_->Dropped() : 0; }

void Console::Progress(std::string_view text) {
  if (!is_terminal_) return;
  const std::lock_guard lock(mutex_);
  fmt::print(stderr, "\r\x1b[K{}", text);
  std::fflush(stderr);
  progress_shown_ = true;
}

void Console::ClearProgress() {
  const std::lock_guard lock(mutex_);
  HideProgress();
}

void Console::HideProgress() {
  if (!progress_shown_) return;
  fmt::print(stderr, "\r\x1b[K");
  std::fflush(stderr);
  progress_shown_ = false;
}

void Console::Line(std::string_view text) {
  EndRepeats();
  Write(text);
}

// The summary on standard output and the messages keep their order where both go to one place.
// Where nobody reads standard output, a message must not wait for it.
void Console::Write(std::string_view text) {
  if (writer_) {
    writer_->Post([line = fmt::format("{}\n", text)] { WriteLine(line); });
    return;
  }
  HideProgress();
  if (ftrylockfile(stdout) == 0) {
    std::fflush(stdout);
    funlockfile(stdout);
  }
  fmt::print(stderr, "{}\n", text);
}

}  // namespace flow::host
