// SPDX-License-Identifier: Apache-2.0
// A thread of its own for what may hang: a terminal, a pipe, a disk. Whoever has something to write
// leaves it as a job and goes on; a queue that is full takes no more, and says how much it left
// out.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace flow::host {

class Writer {
 public:
  using Clock = std::chrono::steady_clock;
  using Job = std::function<void()>;  // throws nothing

  // At most most_jobs wait behind the one that is being done. The name is for telling of a writer
  // that is stuck.
  Writer(std::string name, std::size_t most_jobs);

  // Waits for what was posted, for ever if need be: where a job may hang, FinishBy comes first, and
  // if it fails Abandon or std::_Exit.
  ~Writer();
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;

  // These may be called by any thread. Post never waits: false when the queue is full, and then
  // the job is dropped.
  bool Post(Job job);

  // FinishBy waits until everything that was posted is done; false when it is not by the deadline.
  [[nodiscard]] bool FinishBy(Clock::time_point deadline);

  // How long the job at hand has been going on; zero where there is none.
  [[nodiscard]] Clock::duration Busy() const;

  // Jobs that wait or are being done, and those that found the queue full.
  [[nodiscard]] std::size_t Waiting() const;
  [[nodiscard]] std::uint64_t Dropped() const;

  [[nodiscard]] const std::string& name() const { return name_; }

  // Abandon drops what waits and leaves the thread to itself; for jobs that hold all that they use.
  void Abandon();

 private:
  struct State;
  static void Loop(State* state);

  std::string name_;
  std::size_t most_jobs_;
  std::shared_ptr<State> state_;
  std::thread thread_;
};

}  // namespace flow::host
