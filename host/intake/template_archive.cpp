// SPDX-License-Identifier: Apache-2.0
#include "host/intake/template_archive.h"

#include <absl/strings/ascii.h>
#include <absl/strings/escaping.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <utility>

#include "host/base/error.h"
#include "host/base/files.h"
#include "host/base/memory_budget.h"
#include "host/export/export_format.h"

namespace flow::host {
namespace {

// A line is the time and the message in hex digits.
constexpr std::string_view kFormat = "flowhost templates 1";

// Stands in a line before the bytes of a message that begins with a domain.
constexpr std::string_view kDomain = "domain ";

}  // namespace

TemplateArchive::TemplateArchive(const std::string& directory)
    : file_(directory, "templates", kFormat) {}

TemplateArchive::~TemplateArchive() {
  if (lock_ >= 0) close(lock_);
}

void TemplateArchive::Open() {
  const std::filesystem::path directory = std::filesystem::path(path()).parent_path();
  std::error_code error;
  std::filesystem::create_directories(directory, error);
  const std::string lock_path = (directory / "lock").string();
  if (!error) lock_ = OpenLock(lock_path);
  if (lock_ < 0) {
    throw HostError(fmt::format("templates cannot be kept in {}: {}", directory.string(),
                                error ? error.message() : FileTrouble(errno)));
  }
  if (flock(lock_, LOCK_EX | LOCK_NB) != 0) {
    throw HostError(
        fmt::format("templates cannot be kept in {}: another process does", directory.string()));
  }
}

bool TemplateArchive::TakeOverflow() {
  const std::lock_guard lock(mutex_);
  return std::exchange(has_overflowed_, false);
}

void TemplateArchive::Note(const Message& message, std::int64_t now) {
  const std::lock_guard lock(mutex_);
  NoteLocked(std::make_shared<const Message>(message), now);
}

void TemplateArchive::NoteLocked(std::shared_ptr<const Message> message, std::int64_t time) {
  const auto parsed = ParseTemplateMessage(message->bytes, message->has_domain);
  if (!parsed) return;
  if (message->bytes.size() > kLongestMessage) {
    has_overflowed_ = true;
    return;
  }
  ++arrivals_;
  ForEachTemplate(parsed->set, [&](std::uint16_t id, const TemplateShape&) {
    const Key key{parsed->owner, id};
    const std::size_t bytes = message->bytes.size();
    if (!HasRoomFor(key, bytes) && (!MakeRoom() || !HasRoomFor(key, bytes))) {
      has_overflowed_ = true;
      return;
    }
    bytes_ += bytes - BytesOf(key);
    templates_[key] = {time, arrivals_, message};
    has_news_ = true;
  });
}

void TemplateArchive::NoteUsed(const Endpoint& exporter) {
  const std::lock_guard lock(mutex_);
  if (used_.size() < Shares().exporters) used_.insert(exporter);
}

std::size_t TemplateArchive::BytesOf(const Key& key) const {
  const auto known = templates_.find(key);
  return known == templates_.end() ? 0 : known->second.message->bytes.size();
}

bool TemplateArchive::HasRoomFor(const Key& key, std::size_t bytes) const {
  constexpr std::size_t kBeside = 200;  // a message, in memory
  return (templates_.size() < kMostTemplates || templates_.contains(key)) &&
         bytes_ - BytesOf(key) + bytes + kBeside * (templates_.size() + 1) <= Shares().archive;
}

// Of whoever has sent no record the newer half goes: those are the ones that a flood makes up,
// while true exporters of the last run may not have sent any yet.
bool TemplateArchive::MakeRoom() {
  if (wait_ > 0) {
    --wait_;
    return false;
  }
  const std::size_t before = templates_.size();
  std::vector<std::uint64_t> orders;
  for (const auto& [key, entry] : templates_) {
    if (!used_.contains(key.owner.exporter)) orders.push_back(entry.order);
  }
  if (orders.empty()) orders.push_back(0);
  const auto middle = orders.begin() + static_cast<std::ptrdiff_t>(orders.size() / 2);
  std::nth_element(orders.begin(), middle, orders.end());
  absl::erase_if(templates_, [&](const auto& entry) {
    if (entry.second.order < *middle || used_.contains(entry.first.owner.exporter)) return false;
    bytes_ -= entry.second.message->bytes.size();
    return true;
  });
  const std::size_t found = before - templates_.size();
  if (found < before / 16) wait_ = before / 4;
  NoteLetGo(LetGo::kArchived, found);
  return found > 0;
}

std::vector<TemplateArchive::Entry> TemplateArchive::Newest() const {
  std::vector<Entry> entries;
  for (const auto& [key, entry] : templates_) entries.push_back(entry);
  std::ranges::sort(entries, {}, &Entry::order);
  // clang 14 does not take std::ranges::unique of this library.
  const auto is_same = [](const Entry& a, const Entry& b) { return a.order == b.order; };
  entries.erase(std::unique(entries.begin(), entries.end(), is_same), entries.end());
  return entries;
}

std::vector<std::shared_ptr<const TemplateArchive::Message>> TemplateArchive::Messages() const {
  const std::lock_guard lock(mutex_);
  std::vector<std::shared_ptr<const Message>> messages;
  for (Entry& entry : Newest()) messages.push_back(std::move(entry.message));
  return messages;
}

std::size_t TemplateArchive::templates() const {
  const std::lock_guard lock(mutex_);
  return templates_.size();
}

void TemplateArchive::DropOld(std::int64_t now) {
  absl::erase_if(templates_, [&](const auto& entry) {
    const bool is_old = entry.second.time < now - kLongestSeconds;
    if (is_old) bytes_ -= entry.second.message->bytes.size();
    return is_old;
  });
}

std::vector<std::string> TemplateArchive::Lines(const std::vector<Entry>& entries) {
  std::vector<std::string> lines;
  for (const Entry& entry : entries) {
    const std::string_view bytes(reinterpret_cast<const char*>(entry.message->bytes.data()),
                                 entry.message->bytes.size());
    lines.push_back(fmt::format("{} {}{}", entry.time, entry.message->has_domain ? kDomain : "",
                                absl::BytesToHexString({bytes.data(), bytes.size()})));
  }
  return lines;
}

void TemplateArchive::Save(std::int64_t now) {
  std::vector<Entry> entries;
  {
    const std::lock_guard lock(mutex_);
    if (!std::exchange(has_news_, false)) return;
    DropOld(now);
    entries = Newest();
  }
  if (file_.Save(Lines(entries))) return;  // lanes that learn templates wait for neither
  const int reason = errno;
  const std::lock_guard lock(mutex_);
  has_news_ = true;
  throw HostError(fmt::format("templates cannot be kept in {}: {}", path(), std::strerror(reason)));
}

bool TemplateArchive::ReadLine(const std::string& line, std::int64_t now) {
  std::int64_t time = 0;
  const char* const end = line.data() + line.size();
  const auto [after, error] = std::from_chars(line.data(), end, time);
  if (error != std::errc() || after == end || *after != ' ') return false;
  std::string_view digits(after + 1, static_cast<std::size_t>(end - after - 1));
  const bool has_domain = digits.starts_with(kDomain);
  if (has_domain) digits.remove_prefix(kDomain.size());
  if (digits.size() % 2 != 0 || !std::ranges::all_of(digits, absl::ascii_isxdigit)) return false;
  const std::string bytes = absl::HexStringToBytes({digits.data(), digits.size()});
  const auto message =
      std::make_shared<const Message>(Message{{bytes.begin(), bytes.end()}, has_domain});
  if (!ParseTemplateMessage(message->bytes, message->has_domain)) return false;
  if (time >= now - kLongestSeconds) NoteLocked(message, std::min(time, now));
  return true;
}

void TemplateArchive::Load(std::int64_t now, std::string* trouble) {
  const std::lock_guard lock(mutex_);
  const auto take = [&](const std::string& line) { return ReadLine(line, now); };
  has_news_ = !file_.Load(now, take, trouble) && !trouble->empty();
}

void TemplateArchive::Forget(const std::function<bool(const IpAddress&)>& is_gone) {
  const std::lock_guard lock(mutex_);
  absl::erase_if(templates_, [&](const auto& entry) {
    if (!is_gone(entry.first.owner.exporter.address)) return false;
    bytes_ -= entry.second.message->bytes.size();
    has_news_ = true;
    return true;
  });
}

}  // namespace flow::host
