// SPDX-License-Identifier: Apache-2.0
#include "host/scale/lesson_book.h"

#include <algorithm>
#include <utility>

#include "host/base/memory_budget.h"

namespace flow::host {

// Room for strangers does not come back: those who stay are used before long.
bool LessonBook::HasRoomFor(const Key& key, bool is_own, Timestamp now) {
  if (entries_.contains(key)) return true;
  if (entries_.size() >= kMost && !MakeRoom(now)) {
    NoteLetGo(LetGo::kLessons, 1);
    return false;
  }
  if (!is_own || used_.contains(key.owner.exporter)) return true;
  return unused_ < kMostUnused && ++unused_ > 0;
}

// What nobody has told for long goes.
bool LessonBook::MakeRoom(Timestamp now) {
  if (now < next_clearing_) return false;
  next_clearing_ = now + kAgain;
  absl::erase_if(entries_,
                 [now](const auto& entry) { return entry.second.lesson->told + kLongest < now; });
  return entries_.size() < kMost;
}

void LessonBook::Note(Lesson lesson) {
  lesson.collector = collector_;
  lesson.run = run_;
  const auto shared = std::make_shared<const Lesson>(std::move(lesson));
  const std::lock_guard lock(mutex_);
  ++arrivals_;
  for (const std::uint16_t id : shared->ids) {
    const Key key{shared->kind, shared->owner, id};
    if (!HasRoomFor(key, true, shared->told)) continue;
    Entry& entry = entries_[key];
    const bool is_known = entry.is_own && entry.lesson->Content() == shared->Content();
    if (!is_known) {
      const bool may_wait = entry.is_own && shared->kind == Lesson::Kind::kRate;
      entry.due = may_wait ? std::min(entry.due, entry.posted + kBetweenRates) : 0;
      has_news_ = true;
    }
    entry.lesson = shared;
    entry.order = arrivals_;
    entry.is_own = true;
  }
}

void LessonBook::NoteUsed(const Endpoint& exporter) {
  const std::lock_guard lock(mutex_);
  if (used_.size() < kMost) used_.insert(exporter);
}

std::vector<LessonBook::SharedLesson> LessonBook::ToTell(Timestamp now) {
  const std::lock_guard lock(mutex_);
  if (!std::exchange(has_news_, false) && now < next_look_) return {};
  next_look_ = now + kMicrosPerSecond;
  std::vector<std::pair<std::uint64_t, SharedLesson>> due;
  for (auto& [key, entry] : entries_) {
    const bool is_old = entry.lesson->told + kLongest < now;
    if (!entry.is_own || is_old || entry.due > now) continue;
    entry.posted = now;
    entry.due = now + kAgain;
    const std::uint64_t rates_first = key.kind == Lesson::Kind::kRate ? 0 : std::uint64_t{1} << 63;
    due.emplace_back(rates_first | entry.order, entry.lesson);
  }
  std::ranges::sort(due, {}, [](const auto& one) { return one.first; });
  std::vector<SharedLesson> lessons;
  for (auto& [order, lesson] : due) {
    if (lessons.empty() || lessons.back() != lesson) lessons.push_back(std::move(lesson));
  }
  return lessons;
}

void LessonBook::GiveBack(const SharedLesson& lesson) {
  const std::lock_guard lock(mutex_);
  for (const std::uint16_t id : lesson->ids) {
    const auto known = entries_.find({lesson->kind, lesson->owner, id});
    if (known != entries_.end() && known->second.lesson == lesson) known->second.due = 0;
  }
}

bool LessonBook::IsNews(Lesson lesson, Timestamp now) {
  if (lesson.collector == collector_ && lesson.run == run_) return false;
  lesson.told = std::min(lesson.told, now);
  const auto shared = std::make_shared<const Lesson>(std::move(lesson));
  const std::lock_guard lock(mutex_);
  ++arrivals_;
  bool is_news = false;
  for (const std::uint16_t id : shared->ids) {
    const Key key{shared->kind, shared->owner, id};
    const auto known = entries_.find(key);
    if (known != entries_.end() && known->second.lesson->told > shared->told) continue;
    const bool is_known =
        known != entries_.end() && known->second.lesson->Content() == shared->Content();
    // What there is no room for would be news whenever it is told.
    if (!HasRoomFor(key, false, now)) continue;
    is_news |= !is_known;
    entries_[key] = {shared, arrivals_, false, 0, 0};
  }
  return is_news;
}

}  // namespace flow::host
