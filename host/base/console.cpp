#include "host/base/console.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>
#include <utility>

#include "flowhandlers/host_interfaces.h"
#include "host/base/printable.h"

namespace flow::host {
namespace {

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

}  // namespace

Console::Console(int log_level) : log_level_(log_level), is_terminal_(isatty(STDERR_FILENO) != 0) {}

Console::~Console() { EndRepeats(); }

void Console::Error(std::string_view text) { Notice(text); }

void Console::Notice(std::string_view text) {
  const std::lock_guard lock(mutex_);
  Line(fmt::format("flowhost: {}", Printable(text)));
}

void Console::Log(std::string_view component, int level, std::string_view text) {
  if (level <= kLogWarning) ++warnings_;
  if (level > log_level_) return;
  std::string line = fmt::format("{}: {}: {}", component, LevelName(level), Printable(text));
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
  HideProgress();
  if (ftrylockfile(stdout) == 0) {
    std::fflush(stdout);
    funlockfile(stdout);
  }
  fmt::print(stderr, "{}\n", text);
}

}  // namespace flow::host
