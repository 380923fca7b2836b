#include "host/base/writer.h"

#include <utility>

namespace flow::host {

Writer::Writer(std::string name, std::size_t most_jobs)
    : name_(std::move(name)), most_jobs_(most_jobs), thread_([this] { Loop(); }) {}

Writer::~Writer() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
    has_job_.notify_one();
  }
  thread_.join();
}

bool Writer::Post(Job job) {
  const std::lock_guard lock(mutex_);
  if (jobs_.size() >= most_jobs_) {
    dropped_.fetch_add(1, std::memory_order_relaxed);
    return false;
  }
  jobs_.push_back(std::move(job));
  has_job_.notify_one();
  return true;
}

bool Writer::FinishBy(Clock::time_point deadline) {
  std::unique_lock lock(mutex_);
  return is_idle_.wait_until(lock, deadline, [this] { return jobs_.empty() && !is_busy_; });
}

Writer::Clock::duration Writer::Busy() {
  const std::lock_guard lock(mutex_);
  return is_busy_ ? Clock::now() - busy_since_ : Clock::duration::zero();
}

std::size_t Writer::Waiting() {
  const std::lock_guard lock(mutex_);
  return jobs_.size() + (is_busy_ ? 1 : 0);
}

void Writer::Loop() {
  std::unique_lock lock(mutex_);
  for (;;) {
    has_job_.wait(lock, [this] { return !jobs_.empty() || ending_; });
    if (jobs_.empty()) return;
    {
      const Job job = std::move(jobs_.front());
      jobs_.pop_front();
      is_busy_ = true;
      busy_since_ = Clock::now();
      lock.unlock();
      job();
    }  // what the job holds is given back outside the lock
    lock.lock();
    is_busy_ = false;
    if (jobs_.empty()) is_idle_.notify_all();
  }
}

}  // namespace flow::host
