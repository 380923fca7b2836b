// SPDX-License-Identifier: Apache-2.0
#include "host/output/outlet.h"

#include <fmt/format.h>

#include <utility>

#include "host/base/console.h"
#include "host/base/number_text.h"

namespace flow::host {

Outlet::Outlet(std::string name, Keeps keeps, bool has_writer, Console& console)
    : name_(std::move(name)), keeps_(keeps), console_(console) {
  if (has_writer) writer_.emplace(name_, 1);
}

void Outlet::Take(Task task) {
  {
    const std::lock_guard lock(mutex_);
    if (keeps_ == Keeps::kNewest) waiting_.clear();
    if (waiting_.size() >= kMostWaiting) {
      waiting_.pop_front();
      ++lost_;
    }
    waiting_.push_back(std::move(task));
  }
  if (!writer_) return Work();
  writer_->Post([this] { Work(); });  // where there is no room, one that is to come takes it
}

std::optional<Outlet::Task> Outlet::Next() {
  const std::lock_guard lock(mutex_);
  if (waiting_.empty()) return std::nullopt;
  Task task = std::move(waiting_.front());
  waiting_.pop_front();
  is_writing_ = true;
  return task;
}

void Outlet::Work() {
  while (std::optional<Task> task = Next()) {
    const bool written = Try(*task);
    const std::lock_guard lock(mutex_);
    is_writing_ = false;
    if (written || keeps_ != Keeps::kAll) continue;
    if (waiting_.size() < kMostWaiting) {
      waiting_.push_front(std::move(*task));
    } else {
      ++lost_;
    }
    return;  // with the next one
  }
}

// A trouble is told when it begins, or is another, and when it ends.
bool Outlet::Try(const Task& task) {
  std::string trouble;
  try {
    task();
  } catch (const std::exception& error) {
    trouble = error.what();
  }
  std::string before;
  {
    const std::lock_guard lock(mutex_);
    before = std::exchange(trouble_, trouble);
  }
  if (trouble == before) return trouble.empty();
  if (!trouble.empty()) {
    console_.Error(trouble);
  } else {
    console_.Notice(fmt::format("{} is written again", name_));
  }
  return trouble.empty();
}

void Outlet::Watch() {
  constexpr std::chrono::seconds kPatience(5);
  if (!writer_) return;
  const auto busy = writer_->Busy();
  const bool is_stuck = busy >= kPatience;
  if (is_stuck == std::exchange(is_stuck_, is_stuck)) return;
  const std::size_t waiting = Waiting();
  if (is_stuck) {
    console_.Error(fmt::format(
        "{} has not taken a report for {}; nothing else waits for it, and the last {} are kept",
        name_, DurationText(std::chrono::duration_cast<std::chrono::milliseconds>(busy).count()),
        keeps_ == Keeps::kNewest ? 1 : kMostWaiting));
  } else {
    const std::lock_guard lock(mutex_);
    console_.Notice(
        fmt::format("{} takes reports again; {} are lost, {} wait", name_, lost_, waiting));
  }
}

void Outlet::TryAgain() {
  if (writer_ && Waiting() > 0) writer_->Post([this] { Work(); });
}

bool Outlet::FinishBy(Clock::time_point deadline) {
  return !writer_ || writer_->FinishBy(deadline);
}

bool Outlet::Succeeded() {
  const std::lock_guard lock(mutex_);
  return trouble_.empty() && waiting_.empty() && lost_ == 0;
}

std::size_t Outlet::Waiting() {
  const std::lock_guard lock(mutex_);
  return waiting_.size() + (is_writing_ ? 1 : 0);
}

}  // namespace flow::host
