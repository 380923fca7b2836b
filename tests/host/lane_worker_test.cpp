// SPDX-License-Identifier: Apache-2.0
// A lane in its thread: whose fault it is that a datagram takes long.
#include <gtest/gtest.h>
#include <time.h>

#include <chrono>

#include "host/base/console.h"
#include "host/command/meter_setup.h"
#include "tests/host/captures.h"
#include "tests/host/program.h"

namespace flow::host::test {
namespace {

// Of processor time, as a lane may take to bring its books up to date.
void WorkFor(std::chrono::milliseconds time) {
  const auto used = [] {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
  };
  for (const auto start = used(); used() - start < time;) {
  }
}

// The lane takes longer to hand out flows than any datagram may keep a meter busy.
TEST(LaneWorker, BlamesNoExporterForWhatTheLaneDoes) {
  constexpr int kDatagrams = 200;
  const TemporaryFolder folder;
  Console console(kLogError);
  MeterOptions options;
  options.plugin = FakePlugin();
  options.config_directory = (folder / "policies").string();
  MeterSetup setup(options, "", console);
  setup.UseDefaultsIn(folder / "policies");
  setup.Start(LaneMode::kDrop);
  int batches = 0;
  setup.lanes().HandOutFlows(0, [&](const Lane&, const EarlyFlows&) {
    if (++batches <= 2) WorkFor(3 * TimeBudget::kMost);
  });
  const Bytes packet = Ethernet(Udp{.payload = Text("flows that change, twice F")}.Packet());
  for (int i = 0; i < kDatagrams; ++i) {
    setup.intake().Take(1, {1, packet, static_cast<std::uint32_t>(packet.size())});
  }
  setup.lanes().Finish();
  EXPECT_GE(batches, 2);
  EXPECT_TRUE(setup.lanes().TakeOffences().empty());
  EXPECT_EQ(setup.lanes().Records(), kDatagrams);
}

}  // namespace
}  // namespace flow::host::test
