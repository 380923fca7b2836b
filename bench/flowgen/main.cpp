// SPDX-License-Identifier: Apache-2.0
#include <fmt/format.h>

#include <chrono>
#include <exception>

#include "bench/flowgen/command_line.h"
#include "bench/flowgen/run.h"

namespace flow::gen {
namespace {

constexpr std::uint64_t kMicroseconds = 1'000'000;

std::uint64_t StartOf(const Options& options) {
  if (!options.write.empty()) return 1'700'000'000 * kMicroseconds;
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<std::uint64_t>(
             std::chrono::duration_cast<std::chrono::microseconds>(now).count()) -
         std::uint64_t{60} * options.minutes * kMicroseconds;
}

void Print(const Totals& totals, const char* prefix) {
  fmt::print("{0}datagrams {1}\n", prefix, totals.datagrams);
  fmt::print("{0}datagram_bytes {1}\n", prefix, totals.datagram_bytes);
  fmt::print("{0}records {1}\n", prefix, totals.records);
  fmt::print("{0}bytes {1}\n", prefix, totals.bytes);
  fmt::print("{0}packets {1}\n", prefix, totals.packets);
}

int Main(const Options& options) {
  const auto output = options.write.empty() ? NewUdpOutput(options) : NewCaptureOutput(options);
  const auto begin = std::chrono::steady_clock::now();
  const Result result = Run(options, StartOf(options), output.get());
  output->Finish();
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
  Print(result.put, "");
  Print(result.left_out, "left_out_");
  fmt::print("send_errors {}\nseconds {:.3f}\n", output->SendErrors(), taken.count());
  if (output->SendErrors() == 0) return kExitOk;
  fmt::print(stderr, "flowgen: the kernel reported {} times that nobody listens\n",
             output->SendErrors());
  return kExitTrouble;
}

}  // namespace
}  // namespace flow::gen

int main(int argc, char** argv) {
  try {
    int status = flow::gen::kExitOk;
    const auto options = flow::gen::ParseCommandLine(argc, argv, &status);
    return options ? flow::gen::Main(*options) : status;
  } catch (const std::exception& error) {
    fmt::print(stderr, "flowgen: {}\n", error.what());
    return flow::gen::kExitTrouble;
  }
}
