// SPDX-License-Identifier: Apache-2.0
// The flat interface over the built plug-in: what is delivered and when, what goes wrong, and that
// nothing but a status comes out of it.

#include "flowhandlers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <span>
#include <stdexcept>
#include <thread>

#include "tests/support/datagram_builders.h"
#include "tests/support/policy_file.h"
#include "tests/support/sflow_builder.h"

namespace flow::test {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr std::uint32_t kExporter = 0x0A00FE01;
constexpr char kNetflowPolicy[] = "NetflowCounterPolicy.xml";

// A caller: writes down what its callbacks are given.
struct Caller {
  std::vector<std::string> updates;
  std::vector<std::pair<int, std::string>> templates;
  std::vector<std::string> log;
  bool throws = false;

  fh_callbacks Callbacks() {
    fh_callbacks table{};
    table.size = sizeof table;
    table.context = this;
    table.counters = [](void* self, const fh_counter* given, std::size_t count) {
      static_cast<Caller*>(self)->Take(std::span(given, count));
    };
    table.flows = [](void* self, const fh_flow* given, std::size_t count) {
      static_cast<Caller*>(self)->Take(std::span(given, count));
    };
    table.templates = [](void* self, int channel, const void* data, std::size_t length) {
      static_cast<Caller*>(self)->templates.emplace_back(
          channel, std::string(static_cast<const char*>(data), length));
    };
    table.log = [](void* self, int level, const char* text) {
      static_cast<Caller*>(self)->log.push_back(std::to_string(level) + " " + text);
    };
    return table;
  }

  void Take(std::span<const fh_counter> counters) {
    for (const fh_counter& counter : counters) {
      EXPECT_EQ(std::strlen(counter.key), counter.key_length);
      updates.push_back("group " + std::to_string(counter.group) + " " + counter.key + " " +
                        std::to_string(counter.meter) + ": " + std::to_string(counter.value));
    }
    if (throws) throw std::runtime_error("thrown by the caller");
  }

  void Take(std::span<const fh_flow> flows) {
    for (const fh_flow& flow : flows) {
      EXPECT_EQ(std::strlen(flow.key), flow.key_length);
      std::string line = "flow " + std::to_string(flow.kind) + " " + flow.key;
      for (const std::uint64_t value : flow.values) line += " " + std::to_string(value);
      updates.push_back(line + (flow.text == nullptr ? "" : " " + std::string(flow.text)));
    }
  }
};

class Capi : public testing::Test {
 protected:
  Capi() {
    Policy(kNetflowPolicy, "");
    Policy("SFlowCounterPolicy.xml", "");
  }

  void Policy(const char* name, std::string_view settings) {
    WriteFile(directory_.Path(name), PolicyXml(settings));
  }

  fh_collector* Open(Caller* caller) {
    const fh_callbacks callbacks = caller->Callbacks();
    fh_collector* const collector = fh_open(directory_.Path().c_str(), &callbacks, nullptr);
    EXPECT_NE(collector, nullptr) << fh_error();
    return collector;
  }

  static int Handle(fh_collector* collector, const Bytes& datagram, std::uint64_t seconds = 0) {
    return fh_handle(collector, FH_NETFLOW, kExporter, 2055, datagram.data(), datagram.size(),
                     seconds);
  }

  TempDirectory directory_;
};

const Fields kFields = {{8, 4}, {12, 4}, {1, 4}, {2, 4}};
const Set kRecord = DataSet(300).Record(Wire().Ip("10.0.0.1").Ip("10.0.0.2").U32(900).U32(3));
const Set kFiller = Set(5).Pad(4);  // means nothing, makes a message long enough

TEST_F(Capi, WhatADatagramBringsIsDeliveredBeforeItReturns) {
  Caller caller;
  fh_collector* const collector = Open(&caller);
  EXPECT_THAT(caller.log, Contains(HasSubstr("7 Loading netflow metering policy")));
  EXPECT_EQ(Handle(collector, V5Packet().Record({.packets = 3, .bytes = 700}).Build()), FH_OK);
  EXPECT_THAT(caller.updates, Contains("group 6 TOTALBW 0: 700"));
  EXPECT_THAT(caller.updates, Contains("group 1 0A.00.00.01 2: 700"));
  EXPECT_THAT(caller.updates, Contains("group 1 0A.00.00.02 1: 700"));
  EXPECT_THAT(caller.updates, Contains(HasSubstr("flow 1 06C:0A.00.00.01:p-FFFF_")));
  EXPECT_EQ(fh_records(collector), 1U);
  fh_close(collector);
}

TEST_F(Capi, FlowsOfSamplesArriveAsFlowsToo) {
  Caller caller;
  fh_collector* const collector = Open(&caller);
  const Bytes datagram =
      SFlowPacket().Flow({.elements = {SampledHeader(Frame().Ethernet().Ipv4().Tcp())}}).Build();
  EXPECT_EQ(fh_handle(collector, FH_SFLOW, kExporter, 6343, datagram.data(), datagram.size(), 0),
            FH_OK);
  EXPECT_THAT(caller.updates, Contains(HasSubstr("flow 1 06C:0A.00.00.01:p-FFFF_")));
  EXPECT_THAT(caller.updates, testing::Not(Contains(HasSubstr("group 3 "))));
  fh_close(collector);
}

TEST_F(Capi, WhatIsNoDatagramIsRefused) {
  Caller caller;
  fh_collector* const collector = Open(&caller);
  EXPECT_EQ(Handle(collector, Bytes(3)), FH_REFUSED);
  EXPECT_EQ(Handle(collector, V5Packet().Record().WithVersion(77).Build()), FH_REFUSED);
  EXPECT_EQ(fh_handle(collector, 2, kExporter, 1, "", 0, 0), FH_FAILED);
  EXPECT_STREQ(fh_error(), "no such protocol");
  EXPECT_EQ(fh_learn(collector, 7, "", 0), FH_FAILED);
  EXPECT_THAT(caller.updates, IsEmpty());
  fh_close(collector);
  EXPECT_EQ(fh_handle(nullptr, FH_NETFLOW, 0, 0, "", 0, 0), FH_FAILED);
}

TEST_F(Capi, WhatACallbackThrowsStopsAtTheBorder) {
  Caller caller;
  fh_collector* const collector = Open(&caller);
  caller.throws = true;
  EXPECT_EQ(Handle(collector, V5Packet().Record().Build()), FH_FAILED);
  EXPECT_STREQ(fh_error(), "thrown by the caller");
  caller = Caller();
  EXPECT_EQ(Handle(collector, Bytes(3)), FH_REFUSED);
  EXPECT_THAT(caller.updates, IsEmpty());  // nothing twice
  EXPECT_EQ(Handle(collector, V5Packet().Record().Build()), FH_OK);
  EXPECT_THAT(caller.updates, Contains("group 6 TOTALBW 0: 1000"));
  fh_close(collector);
}

TEST_F(Capi, CollectorsTeachEachOther) {
  Caller teacher, pupil;
  fh_collector* const first = Open(&teacher);
  fh_collector* const second = Open(&pupil);
  const Bytes lesson =
      IpfixMessage().Add(IpfixTemplates().Template(300, kFields)).Add(kFiller).Build();
  Handle(first, lesson);
  ASSERT_FALSE(teacher.templates.empty());
  const Bytes data = IpfixMessage().Add(kRecord).Build();
  Handle(second, data);
  EXPECT_EQ(fh_records(second), 0U);
  for (const auto& [channel, message] : teacher.templates) {
    EXPECT_EQ(fh_learn(second, channel, message.data(), message.size()), FH_OK);
  }
  Handle(second, data);
  EXPECT_EQ(fh_records(second), 1U);
  EXPECT_THAT(pupil.templates, IsEmpty());
  fh_close(first);
  fh_close(second);
}

TEST_F(Capi, TablesOfOlderAndNewerCallers) {
  struct Newer {
    fh_callbacks known;
    void* unknown;
  };
  Caller caller;
  Newer newer{caller.Callbacks(), nullptr};
  newer.known.size = sizeof newer;
  fh_collector* collector = fh_open(directory_.Path().c_str(), &newer.known, nullptr);
  EXPECT_NE(collector, nullptr);
  fh_close(collector);
  newer.unknown = &caller;
  EXPECT_EQ(fh_open(directory_.Path().c_str(), &newer.known, nullptr), nullptr);
  EXPECT_STREQ(fh_error(), "fh_callbacks: made for a newer version");

  caller = Caller();
  fh_callbacks older = caller.Callbacks();
  older.size = offsetof(fh_callbacks, flows);
  collector = fh_open(directory_.Path().c_str(), &older, nullptr);
  ASSERT_NE(collector, nullptr);
  Handle(collector, V5Packet().Record().Build());
  EXPECT_THAT(caller.updates, testing::Not(Contains(HasSubstr("flow"))));
  EXPECT_THAT(caller.updates, Contains(HasSubstr("TOTALBW")));
  fh_close(collector);
}

TEST_F(Capi, WhyACollectorCannotBeOpened) {
  const auto why = [&](const char* directory, const fh_options& options) {
    EXPECT_EQ(fh_open(directory, nullptr, &options), nullptr);
    return std::string(fh_error());
  };
  fh_options options{};
  const char* const directory = directory_.Path().c_str();
  EXPECT_EQ(why(directory, options), "fh_options: size is not set");
  options.size = sizeof options;
  EXPECT_EQ(why(nullptr, options), "no policy directory");
  EXPECT_EQ(why("/nowhere", options), "/nowhere/NetflowCounterPolicy.xml cannot be read");
  for (const char* networks : {"10.0.0.0/33", "10.0.0/8", "10.0.0.0/", "x", "10.0.0.0/8,,"}) {
    options.home_networks = networks;
    EXPECT_THAT(why(directory, options), HasSubstr("' is no network"));
  }
  options.home_networks = nullptr;
  options.plugin = "/nowhere/plugin.so";
  EXPECT_THAT(why(directory, options), HasSubstr("/nowhere/plugin.so"));
  options.plugin = nullptr;
  Policy(kNetflowPolicy,
         "<FilterHostsInclude>10.0.0.1</FilterHostsInclude>"
         "<FilterHostsExclude>10.0.0.2</FilterHostsExclude>");
  EXPECT_NE(why(directory, options), "");
  WriteFile(directory_.Path(kNetflowPolicy), "<OmbrelPluginConfiguration><Policy>");
  EXPECT_THAT(why(directory, options), HasSubstr(directory_.Path(kNetflowPolicy) + "'"));
}

// The plug-in would end this process.
TEST_F(Capi, APolicyThatIsBrokenLaterDoesNoHarm) {
  Policy(kNetflowPolicy, "<ReloadConfigCheckSeconds>60</ReloadConfigCheckSeconds>");
  SetModificationTime(directory_.Path(kNetflowPolicy), 1700000000);
  Caller caller;
  fh_collector* const collector = Open(&caller);
  const Bytes datagram = V5Packet().Record().Build();
  Handle(collector, datagram, 1700000000);
  WriteFile(directory_.Path(kNetflowPolicy), "<OmbrelPluginConfiguration><Policy>");
  Handle(collector, datagram, 1700001000);
  Handle(collector, datagram, 1700009000);
  EXPECT_EQ(fh_records(collector), 3U);
  fh_close(collector);
}

TEST_F(Capi, CollectorsWorkInThreadsOfTheirOwn) {
  const Bytes datagram = V5Packet().Record().Record().Build();
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 5; ++round) {
        Caller caller;
        fh_collector* const collector = Open(&caller);
        for (int j = 0; j < 20; ++j) Handle(collector, datagram);
        EXPECT_EQ(fh_records(collector), 40U);
        fh_close(collector);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace flow::test
