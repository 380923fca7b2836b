#include "host/intake/template_archive.h"

#include <absl/strings/ascii.h>
#include <absl/strings/escaping.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <utility>

#include "host/base/error.h"
#include "host/export/export_format.h"

namespace flow::host {
namespace {

// The file is text: the first line names the format, the last one says how many stand between, each
// the time and the message in hex digits.
constexpr std::string_view kFirstLine = "flowhost templates 1";
constexpr std::string_view kLastLine = "end ";

void SyncAndClose(int descriptor, bool* failed) {
  if (fsync(descriptor) != 0) *failed = true;
  if (close(descriptor) != 0) *failed = true;
}

bool WriteAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(descriptor, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

// The new file takes the old one's place only once it is on the disk, and so does its name.
bool ReplaceFile(const std::string& path, std::string_view text) {
  const std::string part = path + ".part";
  const int file = open(part.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (file < 0) return false;
  bool failed = !WriteAll(file, text);
  SyncAndClose(file, &failed);
  if (failed || std::rename(part.c_str(), path.c_str()) != 0) return false;
  const std::string directory = std::filesystem::path(path).parent_path().string();
  const int folder = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder >= 0) SyncAndClose(folder, &failed);
  return !failed;
}

}  // namespace

TemplateArchive::TemplateArchive(const std::string& directory)
    : path_((std::filesystem::path(directory) / "templates").string()) {}

TemplateArchive::~TemplateArchive() {
  if (lock_ >= 0) close(lock_);
}

void TemplateArchive::Open() {
  const std::filesystem::path directory = std::filesystem::path(path_).parent_path();
  std::error_code error;
  std::filesystem::create_directories(directory, error);
  const std::string lock_path = (directory / "lock").string();
  if (!error) lock_ = open(lock_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (lock_ < 0) {
    throw HostError(fmt::format("templates cannot be kept in {}: {}", directory.string(),
                                error ? error.message() : std::strerror(errno)));
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
  const auto parsed = ParseTemplateMessage(*message);
  if (!parsed) return;
  if (message->size() > kLongestMessage) {
    has_overflowed_ = true;
    return;
  }
  ++arrivals_;
  ForEachTemplate(parsed->set, [&](std::uint16_t id, const TemplateShape&) {
    const Key key{parsed->exporter, id};
    const auto known = templates_.find(key);
    const std::size_t before = known == templates_.end() ? 0 : known->second.message->size();
    const bool is_full = templates_.size() >= kMostTemplates && known == templates_.end();
    if (is_full || bytes_ - before + message->size() > kMostBytes) {
      has_overflowed_ = true;
      return;
    }
    bytes_ += message->size() - before;
    templates_[key] = {time, arrivals_, message};
    has_news_ = true;
  });
}

std::vector<TemplateArchive::Entry> TemplateArchive::Newest() const {
  std::vector<Entry> entries;
  for (const auto& [key, entry] : templates_) entries.push_back(entry);
  std::ranges::sort(entries, {}, &Entry::order);
  const auto same = std::ranges::unique(entries, {}, &Entry::order);
  entries.erase(same.begin(), same.end());
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
    if (is_old) bytes_ -= entry.second.message->size();
    return is_old;
  });
}

std::string TemplateArchive::Text() const {
  std::string text = std::string(kFirstLine) + "\n";
  const std::vector<Entry> entries = Newest();
  for (const Entry& entry : entries) {
    const std::string_view bytes(reinterpret_cast<const char*>(entry.message->data()),
                                 entry.message->size());
    text +=
        fmt::format("{} {}\n", entry.time, absl::BytesToHexString({bytes.data(), bytes.size()}));
  }
  return text + fmt::format("{}{}\n", kLastLine, entries.size());
}

void TemplateArchive::Save(std::int64_t now) {
  std::string text;
  {
    const std::lock_guard lock(mutex_);
    if (!std::exchange(has_news_, false)) return;
    DropOld(now);
    text = Text();
  }
  if (ReplaceFile(path_, text)) return;
  const int reason = errno;
  const std::lock_guard lock(mutex_);
  has_news_ = true;
  throw HostError(fmt::format("templates cannot be kept in {}: {}", path_, std::strerror(reason)));
}

bool TemplateArchive::ReadLine(const std::string& line, std::int64_t now) {
  std::int64_t time = 0;
  const char* const end = line.data() + line.size();
  const auto [after, error] = std::from_chars(line.data(), end, time);
  if (error != std::errc() || after == end || *after != ' ') return false;
  const std::string_view digits(after + 1, static_cast<std::size_t>(end - after - 1));
  if (digits.size() % 2 != 0 || !std::ranges::all_of(digits, absl::ascii_isxdigit)) return false;
  const std::string bytes = absl::HexStringToBytes({digits.data(), digits.size()});
  const auto message = std::make_shared<const Message>(bytes.begin(), bytes.end());
  if (!ParseTemplateMessage(*message)) return false;
  if (time >= now - kLongestSeconds) NoteLocked(message, std::min(time, now));
  return true;
}

void TemplateArchive::Load(std::int64_t now, std::string* trouble) {
  std::error_code error;
  if (!std::filesystem::exists(path_, error)) return;
  std::ifstream file(path_);
  const std::lock_guard lock(mutex_);
  std::string line;
  std::size_t messages = 0;
  bool whole = false;
  if (std::getline(file, line) && line == kFirstLine) {
    while (std::getline(file, line) && ReadLine(line, now)) ++messages;
    whole = line == fmt::format("{}{}", kLastLine, messages);
  }
  has_news_ = !whole;
  if (whole) return;
  const std::string aside = fmt::format("{}.damaged-{}", path_, now);
  const bool moved = std::rename(path_.c_str(), aside.c_str()) == 0;
  *trouble =
      fmt::format("{} is damaged{}; {} template messages in front of the damage are used", path_,
                  moved ? fmt::format(" and now stands aside as {}", aside) : "", messages);
}

}  // namespace flow::host
