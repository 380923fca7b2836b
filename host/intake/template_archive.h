// SPDX-License-Identifier: Apache-2.0
// The template messages that meters have posted, kept across restarts: with them the first data
// after a start decodes, instead of waiting for the exporters to repeat their templates.
#pragma once

#include <absl/container/flat_hash_map.h>
#include <absl/container/flat_hash_set.h>

#include <compare>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include "host/export/export_format.h"
#include "host/intake/state_file.h"

namespace flow::host {

class TemplateArchive {
 public:
  // As it was posted; has_domain: on the channel of domains.
  struct Message {
    std::vector<std::uint8_t> bytes;
    bool has_domain = false;
  };

  // Templates beyond this number and the share of memory, and of longer sets, are not kept, and
  // none that was not sent again for as long.
  static constexpr std::size_t kMostTemplates = 50'000;
  static constexpr std::size_t kLongestMessage = std::size_t{16} << 10;
  static constexpr std::int64_t kLongestSeconds = std::int64_t{7} * 86400;

  // The file in the directory; it is made when first saved.
  explicit TemplateArchive(const std::string& directory);

  ~TemplateArchive();
  TemplateArchive(const TemplateArchive&) = delete;
  TemplateArchive& operator=(const TemplateArchive&) = delete;

  // Open makes the directory where there is none and locks it; HostError when nothing could be kept
  // in it, or another process does.
  void Open();

  // Whether templates were not kept because there were too many; false again until there are more.
  bool TakeOverflow();

  // Load reads the file, if there is one. A damaged one is set aside: then *trouble says so, and
  // what stood before the damage is kept.
  void Load(std::int64_t now, std::string* trouble);

  // Note keeps a message for each template that it defines, in place of older ones. Any thread.
  void Note(const Message& message, std::int64_t now);

  // NoteUsed tells of an exporter by whose templates records are decoded: those of others go first.
  // Any thread.
  void NoteUsed(const Endpoint& exporter);

  // Messages are those that define a template which no later one does, the oldest first.
  [[nodiscard]] std::vector<std::shared_ptr<const Message>> Messages() const;
  [[nodiscard]] std::size_t templates() const;

  // Forget drops the templates of exporters.
  void Forget(const std::function<bool(const IpAddress& exporter)>& is_gone);

  // Save writes the file when there is something new since the last time. HostError when that
  // fails.
  void Save(std::int64_t now);

  [[nodiscard]] const std::string& path() const { return file_.path(); }

 private:
  struct Key {
    TemplateOwner owner;
    std::uint16_t id = 0;

    friend auto operator<=>(const Key&, const Key&) = default;
    template <class Hash>
    friend Hash AbslHashValue(Hash hash, const Key& key) {
      return Hash::combine(std::move(hash), key.owner, key.id);
    }
  };
  struct Entry {
    std::int64_t time = 0;    // seconds since 1970
    std::uint64_t order = 0;  // of arrival
    std::shared_ptr<const Message> message;
  };

  void NoteLocked(std::shared_ptr<const Message> message, std::int64_t time);
  [[nodiscard]] std::size_t BytesOf(const Key& key) const;
  [[nodiscard]] bool HasRoomFor(const Key& key, std::size_t bytes) const;
  bool MakeRoom();
  bool ReadLine(const std::string& line, std::int64_t now);
  void DropOld(std::int64_t now);
  [[nodiscard]] std::vector<Entry> Newest() const;
  static std::vector<std::string> Lines(const std::vector<Entry>& entries);

  StateFile file_;
  mutable std::mutex mutex_;
  absl::flat_hash_map<Key, Entry> templates_;
  std::size_t bytes_ = 0;  // of the messages, once for each template
  absl::flat_hash_set<Endpoint> used_;
  std::size_t wait_ = 0;  // so many templates come before there may be room again
  bool has_overflowed_ = false;
  int lock_ = -1;
  std::uint64_t arrivals_ = 0;
  bool has_news_ = false;
};

}  // namespace flow::host
