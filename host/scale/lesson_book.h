// SPDX-License-Identifier: Apache-2.0
// Which lessons collectors have told each other: what is to be told now, and what of others' is
// news.
//
// Whoever hears an exporter tells what it sends: when it changes, when another collector told it
// last, and again from time to time, so that a topic that forgets keeps it. Strangers make up any
// number of templates: of exporters by whose templates no record was decoded few are told.
#pragma once

#include <absl/container/flat_hash_map.h>
#include <absl/container/flat_hash_set.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host/scale/lesson.h"

namespace flow::host {

class LessonBook {
 public:
  using SharedLesson = std::shared_ptr<const Lesson>;

  static constexpr std::size_t kMost = 50'000;
  static constexpr std::size_t kMostUnused = 4096;
  static constexpr Timestamp kAgain = 600 * kMicrosPerSecond;
  // An option that counts something changes all the time.
  static constexpr Timestamp kBetweenRates = 10 * kMicrosPerSecond;
  static constexpr Timestamp kLongest = Timestamp{7} * 86400 * kMicrosPerSecond;

  LessonBook(std::string collector, std::uint64_t run)
      : collector_(std::move(collector)), run_(run) {}

  // These may be called by any thread. Note takes what an exporter has told here, by its real
  // address; NoteUsed, that records are decoded by its templates.
  void Note(Lesson lesson);
  void NoteUsed(const Endpoint& exporter);

  // ToTell gives what is to be told now, rates first: a rate brings the template that it was told
  // by, which may have changed. What could not be told is given back.
  std::vector<SharedLesson> ToTell(Timestamp now);
  void GiveBack(const SharedLesson& lesson);

  // IsNews takes what another collector told; false for what is known, older than what is known,
  // or our own. Clocks that are ahead do not make it newer.
  bool IsNews(Lesson lesson, Timestamp now);

 private:
  struct Key {
    Lesson::Kind kind;
    TemplateOwner owner;
    std::uint16_t id = 0;

    friend bool operator==(const Key&, const Key&) = default;
    template <class Hash>
    friend Hash AbslHashValue(Hash hash, const Key& key) {
      return Hash::combine(std::move(hash), key.kind, key.owner, key.id);
    }
  };
  struct Entry {
    SharedLesson lesson;
    std::uint64_t order = 0;  // of arrival
    bool is_own = false;      // who tells it is us
    Timestamp posted = 0;
    Timestamp due = 0;
  };

  [[nodiscard]] bool HasRoomFor(const Key& key, bool is_own, Timestamp now);
  bool MakeRoom(Timestamp now);

  std::string collector_;
  std::uint64_t run_;
  mutable std::mutex mutex_;
  absl::flat_hash_map<Key, Entry> entries_;
  absl::flat_hash_set<Endpoint> used_;
  std::size_t unused_ = 0;  // entries that were made for exporters that were not used then
  std::uint64_t arrivals_ = 0;
  bool has_news_ = false;  // something may be due at once
  Timestamp next_look_ = 0;
  Timestamp next_clearing_ = 0;
};

}  // namespace flow::host
