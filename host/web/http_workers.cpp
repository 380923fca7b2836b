// SPDX-License-Identifier: Apache-2.0
#include "host/web/http_workers.h"

#include <sys/resource.h>
#include <unistd.h>

#include <utility>

namespace flow::host {

void GiveWay() {
  constexpr int kNice = 15;
  // Of a thread, on Linux. Whoever may not do it goes on as before.
  static_cast<void>(setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), kNice));
}

HttpWorkers::HttpWorkers(std::size_t threads, std::size_t most_waiting)
    : most_waiting_(most_waiting) {
  for (std::size_t i = 0; i < threads; ++i) threads_.emplace_back([this] { Loop(); });
}

HttpWorkers::~HttpWorkers() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  changed_.notify_all();
  for (std::thread& thread : threads_) thread.join();
}

bool HttpWorkers::Post(Job job) {
  {
    const std::lock_guard lock(mutex_);
    if (jobs_.size() >= most_waiting_) return false;
    jobs_.push_back(std::move(job));
  }
  changed_.notify_one();
  return true;
}

void HttpWorkers::Loop() {
  GiveWay();
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return ending_ || !jobs_.empty(); });
    if (jobs_.empty()) return;
    const Job job = std::move(jobs_.front());
    jobs_.pop_front();
    lock.unlock();
    job();
    lock.lock();
  }
}

}  // namespace flow::host
