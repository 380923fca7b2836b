#include "host/exit_watch.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <utility>

namespace flow::host {
namespace {

struct Watch {
  std::mutex mutex;
  std::function<void()> on_exit;
  std::atomic<std::thread::id> in_charge;
};

Watch& TheWatch() {
  static Watch watch;
  return watch;
}

void RunOnExit() {
  Watch& watch = TheWatch();
  std::function<void()> on_exit;
  {
    const std::lock_guard lock(watch.mutex);
    on_exit = std::exchange(watch.on_exit, nullptr);
    if (on_exit) watch.in_charge = std::this_thread::get_id();
  }
  if (!on_exit) return;
  alarm(60);  // whatever happens now, the process ends
  on_exit();
}

// Meters in several threads may find the same broken policy at once. The first thread that ends the
// process has the last word; the others must not end it before that was said.
void WaitForLastWord() {
  const std::thread::id in_charge = TheWatch().in_charge;
  if (in_charge == std::thread::id() || in_charge == std::this_thread::get_id()) return;
  std::atexit(WaitForLastWord);  // each handler runs once: one for the next thread
  for (;;) pause();
}

}  // namespace

ExitWatch::ExitWatch(std::function<void()> on_exit) {
  TheWatch();  // made before the handlers are enlisted, so destroyed after they run
  // The last one enlisted runs first.
  static const int enlisted = std::atexit(WaitForLastWord) + std::atexit(RunOnExit);
  static_cast<void>(enlisted);
  const std::lock_guard lock(TheWatch().mutex);
  TheWatch().on_exit = std::move(on_exit);
}

ExitWatch::~ExitWatch() {
  const std::lock_guard lock(TheWatch().mutex);
  TheWatch().on_exit = nullptr;
}

}  // namespace flow::host
