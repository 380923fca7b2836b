// SPDX-License-Identifier: Apache-2.0
#include "host/command/exit_watch.h"

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <utility>

namespace flow::host {
namespace {

struct Watch {
  std::mutex mutex;
  std::function<void()> on_exit;
  std::function<void()> on_wait;
  std::atomic<std::thread::id> in_charge;
};

Watch& TheWatch() {
  static Watch watch;
  return watch;
}

void RunOnExit() {
  // Handlers stand in blocks, and another thread frees this one's when it was the last in there. A
  // new handler has the C library look at the list afresh, instead of at what it remembers.
  std::atexit([] {});
  Watch& watch = TheWatch();
  watch.in_charge = std::this_thread::get_id();
  std::function<void()> on_exit;
  {
    const std::lock_guard lock(watch.mutex);
    on_exit = std::exchange(watch.on_exit, nullptr);
  }
  if (!on_exit) return;
  alarm(20);  // whatever happens now, the process ends
  on_exit();
}

// Meters in several threads may find the same broken policy at once. The first thread that ends the
// process has the last word; the others must not end it before that was said. It has run RunOnExit,
// or is about to.
void WaitForLastWord() {
  using namespace std::chrono_literals;
  const std::atomic<std::thread::id>& in_charge = TheWatch().in_charge;
  while (in_charge.load() == std::thread::id()) std::this_thread::sleep_for(1ms);
  if (in_charge.load() == std::this_thread::get_id()) return;
  std::function<void()> on_wait;
  {
    const std::lock_guard lock(TheWatch().mutex);
    on_wait = TheWatch().on_wait;
  }
  if (on_wait) on_wait();
  for (;;) pause();
}

// Each handler runs once, in one of the threads that end the process: every thread needs its own.
// The last one enlisted runs first.
int EnlistHandlers() {
  constexpr int kMostThreads = 80;  // the lanes' and our own
  int failures = 0;
  for (int i = 0; i < kMostThreads; ++i) failures += std::atexit(WaitForLastWord);
  return failures + std::atexit(RunOnExit);
}

}  // namespace

ExitWatch::ExitWatch(std::function<void()> on_exit, std::function<void()> on_wait) {
  TheWatch();  // made before the handlers are enlisted, so destroyed after they run
  static const int enlisted = EnlistHandlers();
  static_cast<void>(enlisted);
  const std::lock_guard lock(TheWatch().mutex);
  TheWatch().on_exit = std::move(on_exit);
  TheWatch().on_wait = std::move(on_wait);
}

ExitWatch::~ExitWatch() {
  {
    const std::lock_guard lock(TheWatch().mutex);
    TheWatch().on_wait = nullptr;
    if (std::exchange(TheWatch().on_exit, nullptr)) return;
  }
  // Another thread is saying the last word. What it speaks of lasts until the process has ended.
  for (;;) pause();
}

}  // namespace flow::host
