// SPDX-License-Identifier: Apache-2.0
// A writer that hangs holds up nobody.
#include "host/base/writer.h"

#include <gtest/gtest.h>

#include <future>
#include <vector>

namespace flow::host {
namespace {

using namespace std::chrono_literals;

TEST(Writer, HangsAloneAndCatchesUp) {
  std::vector<int> done;
  std::promise<void> gate;
  Writer writer("a pipe", 2);
  EXPECT_TRUE(writer.Post([&, opened = gate.get_future().share()] {
    opened.wait();
    done.push_back(0);
  }));
  while (writer.Busy() == 0s) std::this_thread::yield();
  for (int i = 1; i <= 4; ++i) {
    EXPECT_EQ(writer.Post([&done, i] { done.push_back(i); }), i <= 2);
  }
  EXPECT_EQ(writer.Waiting(), 3U);
  EXPECT_FALSE(writer.FinishBy(Writer::Clock::now() + 10ms));
  EXPECT_EQ(writer.Dropped(), 2U);
  gate.set_value();
  EXPECT_TRUE(writer.FinishBy(Writer::Clock::now() + 60s));
  EXPECT_EQ(done, (std::vector{0, 1, 2}));
  EXPECT_EQ(writer.Busy(), 0s);
}

}  // namespace
}  // namespace flow::host
