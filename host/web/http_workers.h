// SPDX-License-Identifier: Apache-2.0
// Threads that answer requests; so many may wait for them.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace flow::host {

class HttpWorkers {
 public:
  using Job = std::function<void()>;  // throws nothing

  HttpWorkers(std::size_t threads, std::size_t most_waiting);
  // Does what waits before.
  ~HttpWorkers();
  HttpWorkers(const HttpWorkers&) = delete;
  HttpWorkers& operator=(const HttpWorkers&) = delete;

  // Post never waits: false when too many do.
  bool Post(Job job);

 private:
  void Loop();

  std::size_t most_waiting_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Job> jobs_;
  bool ending_ = false;
  std::vector<std::thread> threads_;
};

// GiveWay has this thread, and those that it starts, run when the others of the process have
// nothing to do.
void GiveWay();

}  // namespace flow::host
