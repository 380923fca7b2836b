// SPDX-License-Identifier: Apache-2.0
// Flows as lines of a file, of a pipe or of standard output ("-").
#pragma once

#include <atomic>
#include <string>

#include "host/scale/message.h"

namespace flow::host {

class LineFile final : public MessageSink {
 public:
  // Makes the file anew; HostError when it cannot be opened.
  explicit LineFile(const std::string& path);
  ~LineFile() override;

  [[nodiscard]] bool Wants(Topic topic) const override { return topic == Topic::kFlows; }
  bool Put(Topic topic, std::string_view key, std::string_view message) override;
  void Flush() override;
  void End() override { Flush(); }
  [[nodiscard]] std::uint64_t Lost() const override { return lost_; }
  void GiveUp() override { gives_up_ = true; }

 private:
  [[nodiscard]] bool Write();

  int descriptor_;
  std::size_t most_at_once_ = 4096;  // that a pipe which is ready takes without waiting
  std::string waiting_;
  std::uint64_t lines_ = 0;  // that wait
  std::uint64_t lost_ = 0;
  std::atomic<bool> gives_up_ = false;
};

}  // namespace flow::host
