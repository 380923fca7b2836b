// A thread of its own for what may hang: a terminal, a pipe, a disk. Whoever has something to write
// leaves it as a job and goes on; a queue that is full takes no more, and says how much it left
// out.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
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
  // std::_Exit if it fails.
  ~Writer();
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;

  // All these may be called by any thread. Post never waits: false when the queue is full, and then
  // the job is dropped.
  bool Post(Job job);

  // FinishBy waits until everything that was posted is done; false when it is not by the deadline.
  [[nodiscard]] bool FinishBy(Clock::time_point deadline);

  // How long the job at hand has been going on; zero where there is none.
  [[nodiscard]] Clock::duration Busy();

  // Jobs that wait or are being done, and those that found the queue full.
  [[nodiscard]] std::size_t Waiting();
  [[nodiscard]] std::uint64_t Dropped() const { return dropped_.load(std::memory_order_relaxed); }

  [[nodiscard]] const std::string& name() const { return name_; }

 private:
  void Loop();

  std::string name_;
  std::size_t most_jobs_;
  std::atomic<std::uint64_t> dropped_ = 0;
  std::mutex mutex_;
  std::condition_variable has_job_;
  std::condition_variable is_idle_;
  std::deque<Job> jobs_;
  bool is_busy_ = false;
  bool ending_ = false;
  Clock::time_point busy_since_;
  std::thread thread_;
};

}  // namespace flow::host
