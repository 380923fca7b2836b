#include "host/exit_watch.h"

#include <cstdlib>
#include <utility>

namespace flow::host {
namespace {

std::function<void()>& OnExit() {
  static std::function<void()> on_exit;
  return on_exit;
}

void RunOnExit() {
  if (const auto on_exit = std::exchange(OnExit(), nullptr)) on_exit();
}

}  // namespace

ExitWatch::ExitWatch(std::function<void()> on_exit) {
  OnExit() = std::move(on_exit);  // made before the handler is enlisted, so destroyed after it runs
  static const int enlisted = std::atexit(RunOnExit);
  static_cast<void>(enlisted);
}

ExitWatch::~ExitWatch() { OnExit() = nullptr; }

}  // namespace flow::host
