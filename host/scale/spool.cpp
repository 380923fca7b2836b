// SPDX-License-Identifier: Apache-2.0
#include "host/scale/spool.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <tuple>
#include <utility>

#include "host/base/error.h"
#include "host/base/files.h"
#include "host/scale/clickhouse_schema.h"

namespace flow::host {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kSuffix = ".block";
constexpr std::uint64_t kMagic = 0x314B'434F'4C42'4846;  // "FHBLOCK1"

// What stands in front of a block's texts, ends and body. A file is read by the machine that wrote
// it.
struct Head {
  std::uint64_t magic;
  std::uint64_t run;
  std::int64_t bucket;
  std::uint64_t body;
  std::uint64_t bytes;
  std::uint64_t packets;
  std::uint32_t number;
  std::uint32_t rows;
  std::uint32_t ends;
  std::uint32_t crc;  // of all that follows
  std::uint16_t table;
  std::uint16_t collector;
  std::uint32_t unused;
};

std::uint32_t CrcOf(const Block& block) {
  const auto add = [](uLong crc, const void* bytes, std::size_t size) {
    return crc32_z(crc, static_cast<const Bytef*>(bytes), size);
  };
  uLong crc = add(0, block.table.data(), block.table.size());
  crc = add(crc, block.collector.data(), block.collector.size());
  crc = add(crc, block.ends.data(), block.ends.size() * sizeof(block.ends[0]));
  return static_cast<std::uint32_t>(add(crc, block.body.data(), block.body.size()));
}

Head HeadOf(const Block& block) {
  return {kMagic,
          block.run,
          block.bucket,
          block.body.size(),
          block.bytes,
          block.packets,
          block.number,
          block.rows,
          static_cast<std::uint32_t>(block.ends.size()),
          CrcOf(block),
          static_cast<std::uint16_t>(block.table.size()),
          static_cast<std::uint16_t>(block.collector.size()),
          0};
}

std::uint64_t SizeOf(const Head& head) {
  return sizeof(head) + head.table + head.collector + head.ends * sizeof(std::uint32_t) + head.body;
}

// Written aside and renamed: it is whole or it is not there.
void WriteFile(const std::string& path, const Block& block, const Head& head) {
  const std::string draft = path + ".new";
  const int file = CreateAnew(draft, S_IRUSR | S_IWUSR | S_IRGRP);
  const auto fail = [&] {
    const int error = errno;
    if (file >= 0) close(file);
    unlink(draft.c_str());
    throw HostError(fmt::format("{}: {}", path, std::strerror(error)));
  };
  if (file < 0) fail();
  const auto put = [&](const void* bytes, std::size_t size) {
    for (const auto* at = static_cast<const char*>(bytes); size > 0;) {
      const ssize_t written = write(file, at, size);
      if (written < 0 && errno == EINTR) continue;
      if (written < 0) fail();
      at += written;
      size -= static_cast<std::size_t>(written);
    }
  };
  put(&head, sizeof(head));
  put(block.table.data(), block.table.size());
  put(block.collector.data(), block.collector.size());
  put(block.ends.data(), block.ends.size() * sizeof(block.ends[0]));
  put(block.body.data(), block.body.size());
  if (close(file) != 0 || rename(draft.c_str(), path.c_str()) != 0) {
    const int error = errno;
    unlink(draft.c_str());
    throw HostError(fmt::format("{}: {}", path, std::strerror(error)));
  }
}

// Nothing where the file is damaged.
std::optional<Block> ReadFile(const std::string& path, std::uint64_t size) {
  if (!IsPlainOrNone(path)) return std::nullopt;
  std::ifstream file(path, std::ios::binary);
  Head head{};
  file.read(reinterpret_cast<char*>(&head), sizeof(head));
  // Checked before anything is made as large as the file says.
  if (!file || head.magic != kMagic || head.body > size || SizeOf(head) != size)
    return std::nullopt;
  Block block;
  block.run = head.run;
  block.bucket = head.bucket;
  block.number = head.number;
  block.rows = head.rows;
  block.bytes = head.bytes;
  block.packets = head.packets;
  block.table.resize(head.table);
  block.collector.resize(head.collector);
  block.ends.resize(head.ends);
  block.body.resize(head.body);
  file.read(block.table.data(), head.table);
  file.read(block.collector.data(), head.collector);
  file.read(reinterpret_cast<char*>(block.ends.data()),
            static_cast<std::streamsize>(head.ends * sizeof(std::uint32_t)));
  file.read(block.body.data(), static_cast<std::streamsize>(head.body));
  if (!file || CrcOf(block) != head.crc || FindRawTable(block.table) == nullptr) {
    return std::nullopt;
  }
  return block;
}

}  // namespace

Spool::Spool(std::string directory, std::uint64_t most_bytes)
    : directory_(std::move(directory)), most_bytes_(most_bytes) {
  std::error_code error;
  fs::create_directories(directory_, error);
  if (!error && access(directory_.c_str(), W_OK | X_OK) != 0) {
    error = std::error_code(errno, std::generic_category());
  }
  if (error) throw HostError(fmt::format("--spool: {}: {}", directory_, error.message()));
  for (const auto& entry : fs::directory_iterator(directory_, error)) {
    const std::string name = entry.path().filename().string();
    std::uint64_t sequence = 0;
    const auto [end, wrong] = std::from_chars(name.data(), name.data() + name.size(), sequence, 16);
    if (wrong != std::errc() || std::string_view(end) != kSuffix) continue;
    bytes_ += sizes_[sequence] = entry.file_size(error);
  }
}

std::string Spool::PathOf(std::uint64_t sequence) const {
  return fmt::format("{}/{:016x}{}", directory_, sequence, kSuffix);
}

bool Spool::Put(const Block& block, bool has_to_be_kept) {
  const Head head = HeadOf(block);
  const std::uint64_t size = SizeOf(head);
  {
    const std::lock_guard lock(mutex_);
    if (sizes_.contains(block.sequence)) return true;
    if (bytes_ + size > most_bytes_ && !has_to_be_kept) return false;
    bytes_ += size;
  }
  try {
    WriteFile(PathOf(block.sequence), block, head);
  } catch (...) {
    const std::lock_guard lock(mutex_);
    bytes_ -= size;
    throw;
  }
  const std::lock_guard lock(mutex_);
  sizes_[block.sequence] = size;
  return true;
}

std::optional<Block> Spool::First() {
  for (;;) {
    std::uint64_t sequence = 0;
    std::uint64_t size = 0;
    {
      const std::lock_guard lock(mutex_);
      if (sizes_.empty()) return std::nullopt;
      std::tie(sequence, size) = *sizes_.begin();
    }
    const std::string path = PathOf(sequence);
    if (std::optional<Block> block = ReadFile(path, size)) {
      block->sequence = sequence;
      return block;
    }
    const std::lock_guard lock(mutex_);
    std::error_code ignored;
    fs::rename(path, path + ".damaged", ignored);
    trouble_.push_back(path + " is damaged and is set aside");
    bytes_ -= size;
    sizes_.erase(sequence);
  }
}

void Spool::Drop(std::uint64_t sequence) {
  const std::lock_guard lock(mutex_);
  const auto found = sizes_.find(sequence);
  if (found == sizes_.end()) return;
  unlink(PathOf(sequence).c_str());
  bytes_ -= found->second;
  sizes_.erase(found);
}

std::optional<std::uint64_t> Spool::FirstSequence() const {
  const std::lock_guard lock(mutex_);
  if (sizes_.empty()) return std::nullopt;
  return sizes_.begin()->first;
}

std::size_t Spool::size() const {
  const std::lock_guard lock(mutex_);
  return sizes_.size();
}

std::uint64_t Spool::bytes() const {
  const std::lock_guard lock(mutex_);
  return bytes_;
}

std::uint64_t Spool::NextSequence() const {
  const std::lock_guard lock(mutex_);
  return sizes_.empty() ? 1 : sizes_.rbegin()->first + 1;
}

std::vector<std::string> Spool::TakeTrouble() {
  const std::lock_guard lock(mutex_);
  return std::exchange(trouble_, {});
}

}  // namespace flow::host
