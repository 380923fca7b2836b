// SPDX-License-Identifier: Apache-2.0
#include "host/base/writer.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>

namespace flow::host {

struct Writer::State {
  std::mutex mutex;
  std::condition_variable has_job;
  std::condition_variable is_idle;
  std::deque<Job> jobs;
  std::uint64_t dropped = 0;
  bool is_busy = false;
  bool ending = false;
  Clock::time_point busy_since;
};

Writer::Writer(std::string name, std::size_t most_jobs)
    : name_(std::move(name)),
      most_jobs_(most_jobs),
      state_(std::make_shared<State>()),
      thread_([state = state_] { Loop(state.get()); }) {}

Writer::~Writer() {
  if (!thread_.joinable()) return;
  {
    const std::lock_guard lock(state_->mutex);
    state_->ending = true;
    state_->has_job.notify_one();
  }
  thread_.join();
}

bool Writer::Post(Job job) {
  const std::lock_guard lock(state_->mutex);
  if (state_->jobs.size() >= most_jobs_ || state_->ending) {
    ++state_->dropped;
    return false;
  }
  state_->jobs.push_back(std::move(job));
  state_->has_job.notify_one();
  return true;
}

bool Writer::FinishBy(Clock::time_point deadline) {
  std::unique_lock lock(state_->mutex);
  return state_->is_idle.wait_until(lock, deadline,
                                    [this] { return state_->jobs.empty() && !state_->is_busy; });
}

Writer::Clock::duration Writer::Busy() const {
  const std::lock_guard lock(state_->mutex);
  return state_->is_busy ? Clock::now() - state_->busy_since : Clock::duration::zero();
}

std::size_t Writer::Waiting() const {
  const std::lock_guard lock(state_->mutex);
  return state_->jobs.size() + (state_->is_busy ? 1 : 0);
}

std::uint64_t Writer::Dropped() const {
  const std::lock_guard lock(state_->mutex);
  return state_->dropped;
}

void Writer::Abandon() {
  {
    const std::lock_guard lock(state_->mutex);
    state_->dropped += state_->jobs.size();
    state_->jobs.clear();
    state_->ending = true;
    state_->has_job.notify_one();
  }
  if (thread_.joinable()) thread_.detach();
}

void Writer::Loop(State* state) {
  std::unique_lock lock(state->mutex);
  for (;;) {
    state->has_job.wait(lock, [&] { return !state->jobs.empty() || state->ending; });
    if (state->jobs.empty()) return;
    {
      const Job job = std::move(state->jobs.front());
      state->jobs.pop_front();
      state->is_busy = true;
      state->busy_since = Clock::now();
      lock.unlock();
      job();
    }  // what the job holds is given back outside the lock
    lock.lock();
    state->is_busy = false;
    if (state->jobs.empty()) state->is_idle.notify_all();
  }
}

}  // namespace flow::host
