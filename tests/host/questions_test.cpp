// SPDX-License-Identifier: Apache-2.0
// Questions to a store of known traffic, asked as a user does.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <string>

#include "host/ask/times.h"
#include "host/base/error.h"
#include "host/store/schema.h"
#include "tests/host/made_store.h"
#include "tests/host/program.h"

namespace flow::host::test {
namespace {

using Json = nlohmann::json;
using Sums = std::map<std::string, std::int64_t>;

class Questions : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    // ctest runs every test in a process of its own, several at once.
    directory_ = testing::TempDir() + "/questions." + std::to_string(getpid());
    WriteMadeStore(kMade, directory_);
  }
  static void TearDownTestSuite() { std::filesystem::remove_all(directory_); }

  static std::string At(int minute) { return "@" + std::to_string(kMade.start + minute * 60); }

  // The answer over minutes of the store.
  static Json Ask(std::vector<std::string> arguments, int from = 0, int to = 120) {
    for (const std::string& more : {std::string("--store"), directory_, std::string("--json"),
                                    std::string("--from"), At(from), std::string("--to"), At(to)}) {
      arguments.push_back(more);
    }
    const ProgramResult result = RunProgram(arguments);
    EXPECT_EQ(result.status, 0) << result.err;
    return Json::parse(result.out, nullptr, false);
  }

  // What rows have of a column, by their keys.
  static Sums Rows(const Json& answer, const std::string& column = "bytes") {
    Sums rows;
    for (const Json& row : answer["rows"]) rows[row["key"]] = row[column];
    return rows;
  }

  // What flows have, by keys of one or more that each gives.
  static Sums Truth(const std::function<void(const MadeFlow&, Sums*)>& add, int from = 0,
                    int to = 120) {
    Sums sums;
    for (int minute = from; minute < to; ++minute) {
      FlowsOfMinute(kMade, minute, [&](const MadeFlow& flow) { add(flow, &sums); });
    }
    return sums;
  }

  static std::int64_t Both(const MadeFlow& flow) {
    return static_cast<std::int64_t>(flow.bytes + flow.bytes_back);
  }
  static std::string Host(int number) { return MadeHost(kMade, number).Text(); }
  static void AddHosts(const MadeFlow& flow, Sums* sums) {
    (*sums)[Host(flow.source)] += Both(flow);
    (*sums)[Host(flow.destination)] += Both(flow);
  }

  static constexpr MadeStore kMade{.kept_keys = 20};
  inline static std::string directory_;
};

TEST_F(Questions, AnHourIsExactForEveryKeyThatItKeeps) {
  const Json answer = Ask({"top", "hosts", "--top", "20"}, 0, 60);
  const Sums truth = Truth(AddHosts, 0, 60);
  std::int64_t sum = 0;
  for (const auto& [key, bytes] : Rows(answer)) {
    sum += bytes;
    if (key != "(others)") {
      EXPECT_EQ(bytes, truth.at(key)) << key;
    }
  }
  std::int64_t all = 0;
  for (const auto& [key, bytes] : truth) all += bytes;
  EXPECT_EQ(sum, all);
  EXPECT_EQ(answer["total"]["bytes"], all / 2);
  EXPECT_EQ(answer["gaps"], Json::parse(R"([{"from": 1795565820, "to": 1795566000,
                                             "reason": "not running"}])"));
  EXPECT_EQ(answer["losses"][0]["count"], kMadeLost);
}

// Twenty keys of each minute are kept: what a key may have beyond what was found is told.
TEST_F(Questions, MinutesTellWhatTheyMayLack) {
  const Json answer = Ask({"top", "hosts", "--top", "15"}, 5, 55);
  const Sums truth = Truth(AddHosts, 5, 55);
  EXPECT_EQ(answer["exact"], false);
  int lacking = 0;
  for (const Json& row : answer["rows"]) {
    const std::string key = row["key"];
    if (key == "(others)") continue;
    const bool is_least = row.contains("at_least");
    lacking += is_least;
    EXPECT_LE(row["bytes"], truth.at(key)) << key;
    if (!is_least) {
      EXPECT_EQ(row["bytes"], truth.at(key)) << key;
    }
  }
  EXPECT_GT(lacking, 0);
}

TEST_F(Questions, FlowsAddUpByAnyFields) {
  struct Case {
    std::vector<std::string> arguments;
    std::function<void(const MadeFlow&, Sums*)> add;
  };
  const auto in_home = [](const MadeFlow& flow) { return Host(flow.source) == "10.0.0.2"; };
  const Case cases[] = {
      {{"--group-by", "host"}, AddHosts},
      {{"--group-by", "src,dport"},
       [](const MadeFlow& flow, Sums* sums) {
         (*sums)[Host(flow.source) + " " + std::to_string(flow.destination_port)] +=
             static_cast<std::int64_t>(flow.bytes);
         if (flow.packets_back == 0) return;
         (*sums)[Host(flow.destination) + " " + std::to_string(flow.source_port)] +=
             static_cast<std::int64_t>(flow.bytes_back);
       }},
      {{"src host 10.0.0.2", "--group-by", "dst"},
       [&](const MadeFlow& flow, Sums* sums) {
         if (in_home(flow)) {
           (*sums)[Host(flow.destination)] += static_cast<std::int64_t>(flow.bytes);
         }
       }},
      {{"dst host 10.0.0.2", "--group-by", "src"},
       [&](const MadeFlow& flow, Sums* sums) {
         if (in_home(flow) && flow.packets_back > 0) {
           (*sums)[Host(flow.destination)] += static_cast<std::int64_t>(flow.bytes_back);
         }
       }},
      {{"host 10.0.0.2 and port 443", "--group-by", "exporter,interface"},
       [&](const MadeFlow& flow, Sums* sums) {
         if (!in_home(flow) || flow.destination_port != 443) return;
         const std::string exporter = MadeExporter(flow.exporter).Text() + " ";
         (*sums)[exporter + std::to_string(flow.in_interface)] += Both(flow);
         (*sums)[exporter + std::to_string(flow.out_interface)] += Both(flow);
       }},
      {{"udp", "--group-by", "proto"},
       [](const MadeFlow& flow, Sums* sums) {
         if (flow.protocol == 17) (*sums)["udp"] += Both(flow);
       }},
      {{"not udp", "--group-by", "as"},
       [](const MadeFlow& flow, Sums* sums) {
         if (flow.protocol == 17) return;
         (*sums)["AS" + std::to_string(flow.source_as)] += Both(flow);
         (*sums)["AS" + std::to_string(flow.destination_as)] += Both(flow);
       }},
  };
  // Over the edge of a file, not in whole hours.
  for (const Case& row : cases) {
    std::vector<std::string> arguments{"flows", "--top", "100000"};
    arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
    EXPECT_EQ(Rows(Ask(arguments, 35, 77)), Truth(row.add, 35, 77)) << row.arguments[1];
  }
}

// A flow that lasts all the time is judged by what all of its minutes had.
TEST_F(Questions, SingleFlowsStandInTheirOrder) {
  std::vector<std::int64_t> truth;
  Sums hosts;
  MadeFlow whole{};
  std::int64_t parts = 0;
  ForEachFlow(kMade, [&](const MadeFlow& flow) {
    const bool is_long = flow.source_port == kMadeLongPort;
    if (is_long || Both(flow) > 10'000'000) AddHosts(flow, &hosts);
    if (is_long) {
      if (++parts == 1) whole.first_ms = flow.first_ms;
      whole.last_ms = flow.last_ms;
      whole.bytes += flow.bytes + flow.bytes_back;
    } else if (Both(flow) > 10'000'000) {
      truth.push_back(flow.last_ms - flow.first_ms);
    }
  });
  ASSERT_GT(whole.bytes, 10'000'000);
  truth.push_back(whole.last_ms - whole.first_ms);
  std::ranges::sort(truth, std::greater());
  const Json answer = Ask({"flows", "bytes > 10M", "--sort", "duration", "--top", "7"});
  std::vector<std::int64_t> shown;
  std::int64_t flows = 0;
  for (const Json& row : answer["rows"]) {
    flows += row["flows"].get<std::int64_t>();
    if (!row["duration_ms"].is_null()) shown.push_back(row["duration_ms"]);
  }
  EXPECT_EQ(answer["rows"][0]["bytes"], whole.bytes);
  EXPECT_EQ(flows, static_cast<std::int64_t>(truth.size()) - 1 + parts);
  truth.resize(7);
  EXPECT_EQ(shown, truth);
  EXPECT_EQ(Rows(Ask({"flows", "bytes > 10M", "--group-by", "host", "--top", "1000"})), hosts);
  const Json none = Ask({"flows", "bytes > 10M and duration > 60 and not duration > 3h and udp"});
  EXPECT_TRUE(none["rows"].empty());
}

TEST_F(Questions, ASeriesHasItsStepsAndItsGaps) {
  // Five minutes from the tenth: the collector did not run from the 17th to the 20th.
  const Json answer = Ask({"series", "--interface", "192.0.2.1:10", "--step", "5m"}, 10, 35);
  std::vector<std::int64_t> truth(5);
  for (int minute = 10; minute < 35; ++minute) {
    FlowsOfMinute(kMade, minute, [&](const MadeFlow& flow) {
      if (flow.exporter == 0) truth[static_cast<std::size_t>(minute / 5 - 2)] += Both(flow);
    });
  }
  ASSERT_EQ(answer["rows"].size(), truth.size());
  for (std::size_t i = 0; i < truth.size(); ++i) EXPECT_EQ(answer["rows"][i]["bytes"], truth[i]);
  EXPECT_EQ(answer["rows"][0]["time_ms"], (kMade.start + 600) * 1000);
  const Json from_within = Ask({"series", "--step", "5m"}, 12, 35);
  EXPECT_EQ(from_within["rows"][0]["time_ms"], (kMade.start + 600) * 1000);
  const Json minutes = Ask({"series", "--step", "1m"}, 16, 21);
  EXPECT_TRUE(minutes["rows"][1]["bytes"].is_null()) << "nobody listened";
  EXPECT_GT(minutes["rows"][4]["bytes"], 0);
  // The same of flows, over the edge of two files.
  const Json flows = Ask({"series", "host 10.0.0.2 and tcp", "--step", "20m"}, 40, 80);
  const Sums sums = Truth(
      [&](const MadeFlow& flow, Sums* into) {
        if (Host(flow.source) != "10.0.0.2" || flow.protocol != 6) return;
        (*into)[flow.bucket < kMade.start + 3600 ? "0" : "1"] += Both(flow);
      },
      40, 80);
  EXPECT_EQ(flows["rows"][0]["bytes"], sums.at("0"));
  EXPECT_EQ(flows["rows"][1]["bytes"], sums.at("1"));
}

// With --step rows have lines: of counters, and of flows, over the edge of two files.
TEST_F(Questions, LinesAddUpToTheirRowsAndToAllTraffic) {
  const auto sum = [](const Json& row) {
    std::int64_t bytes = 0;
    for (const std::int64_t value : row["line"]) bytes += value;
    return bytes;
  };
  const Json counters = Ask({"top", "hosts", "--top", "3", "--step", "5m"}, 10, 70);
  const Json flows = Ask({"flows", "--group-by", "host", "--top", "3", "--step", "5m"}, 10, 70);
  std::vector<std::int64_t> truth(12);
  for (int minute = 10; minute < 70; ++minute) {
    FlowsOfMinute(kMade, minute, [&](const MadeFlow& flow) {
      truth[static_cast<std::size_t>(minute / 5 - 2)] += Both(flow);
    });
  }
  for (const Json& answer : {counters, flows}) {
    EXPECT_EQ(answer["steps"]["from"], kMade.start + 600);
    EXPECT_EQ(answer["steps"]["seconds"], 300);
    EXPECT_EQ(answer["total"]["line"], truth);
    ASSERT_EQ(answer["rows"].size(), 4) << "the others, too";
    for (const Json& row : answer["rows"]) EXPECT_EQ(sum(row), row["bytes"]) << row["key"];
  }
  EXPECT_EQ(Ask({"top", "totals", "--step", "5m"}, 0, 20)["steps"]["lost"],
            Json({0, kMadeLost, 0, 0}));
}

TEST_F(Questions, ExportersTellWhatTheyLostAndWhenTheyWereSilent) {
  const Json losses = Ask({"losses"});
  ASSERT_EQ(losses["rows"].size(), 1U);
  EXPECT_EQ(losses["rows"][0]["key"], "192.0.2.1");
  EXPECT_EQ(losses["rows"][0]["count"], kMadeLost);
  EXPECT_EQ(losses["rows"][0]["from_ms"], (kMade.start + kMadeLossMinute * 60) * 1000);
  EXPECT_EQ(losses["rows"][0]["to_ms"], (kMade.start + kMadeLossMinute * 60 + 60) * 1000);
  EXPECT_TRUE(Ask({"losses"}, 20, 60)["rows"].empty());
  // The last one says nothing in the last quarter; that nobody listened for a while is no silence.
  const Json exporters = Ask({"exporters", "--utc"});
  ASSERT_EQ(exporters["rows"].size(), 4U);
  for (const Json& row : exporters["rows"]) {
    const bool is_last = row["key"] == "192.0.2.4";
    EXPECT_EQ(row.value("silent", ""), is_last ? "since 2026-11-25 01:30 (30 min)" : "");
    EXPECT_EQ(row["clock_offset_ms"], -1500);
  }
}

TEST_F(Questions, TwoTimesStandBesideEachOther) {
  const Json totals = Ask({"compare", "totals", "--against", At(0)}, 60, 120);
  const auto all = [](int from, int to) {
    return Truth([](const MadeFlow& flow, Sums* sums) { (*sums)["all"] += Both(flow); }, from, to)
        .at("all");
  };
  EXPECT_EQ(totals["rows"][0]["key"], "all");
  EXPECT_EQ(totals["rows"][0]["bytes"], all(60, 120));
  EXPECT_EQ(totals["rows"][0]["bytes_before"], all(0, 60));
  EXPECT_EQ(totals["rows"][0]["difference"], all(60, 120) - all(0, 60));
  // Of keys that one hour has not kept, no more is said than is known.
  const Sums now = Truth(AddHosts, 60, 120);
  const Sums before = Truth(AddHosts, 0, 60);
  const Json hosts = Ask({"compare", "hosts", "--against", At(0), "--top", "100"}, 60, 120);
  int exact = 0;
  for (const Json& row : hosts["rows"]) {
    const std::string key = row["key"];
    EXPECT_LE(row["bytes"], now.at(key));
    EXPECT_LE(row["bytes_before"], before.at(key));
    if (row.contains("at_least")) continue;
    ++exact;
    EXPECT_EQ(row["bytes"], now.at(key));
    EXPECT_EQ(row["bytes_before"], before.at(key));
  }
  EXPECT_GT(exact, 0);
  EXPECT_EQ(hosts["exact"], false);
}

TEST_F(Questions, NewPeersAreThoseOfOneTimeAlone) {
  const auto peers = [](int from, int to) {
    return Truth(
        [](const MadeFlow& flow, Sums* sums) {
          if (Host(flow.source) == "10.0.0.90") (*sums)[Host(flow.destination)] += Both(flow);
        },
        from, to);
  };
  const Sums before = peers(0, 60);
  Sums truth = peers(60, 120);
  std::erase_if(truth, [&](const auto& peer) { return before.contains(peer.first); });
  ASSERT_FALSE(truth.empty());
  const Json answer = Ask(
      {"compare", "hosts", "--of", "10.0.0.90", "--new-peers", "--against", At(0), "--top", "1000"},
      60, 120);
  EXPECT_EQ(Rows(answer), truth);
}

// Where minutes are no longer kept, the hour that has the time is shown whole.
TEST_F(Questions, WhatIsLeftOfATimeIsShown) {
  const std::string directory = directory_ + "/old";
  std::filesystem::create_directory(directory);
  std::filesystem::copy(CountersPath(directory_), CountersPath(directory));
  Database::ToWrite(CountersPath(directory)).Execute("DELETE FROM buckets WHERE tier = 'minute'");
  const ProgramResult result =
      RunProgram({"top", "hosts", "--utc", "--store", directory, "--from", At(10), "--to", At(20)});
  EXPECT_THAT(result.out, testing::HasSubstr("2026-11-25 00:00 to 01:00 UTC"));
  EXPECT_THAT(result.out, testing::HasSubstr("only longer spans are kept"));
  // Before the first minute there is nothing, and no longer span takes its place.
  const ProgramResult before = RunProgram(
      {"top", "hosts", "--utc", "--store", directory_, "--from", At(-20), "--to", At(10)});
  EXPECT_THAT(before.out, testing::HasSubstr("2026-11-24 23:40 to 2026-11-25 00:10 UTC"));
  EXPECT_THAT(before.out, testing::HasSubstr("no data 2026-11-24 23:40 to 24:00 UTC: nothing is"));
}

TEST_F(Questions, AreShownAsText) {
  const std::string names = directory_ + "/names";
  std::ofstream(names) << "# ours\n10.0.0.2   web server\n10.0.0.0/24 office\nAS64500 us\n";
  const std::vector<std::string> span{"--store", directory_, "--utc", "--from", "2026-11-25"};
  const auto ask = [&](std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), span.begin(), span.end());
    return RunProgram(arguments);
  };
  const ProgramResult top = ask({"top", "hosts", "--to", "2026-11-25 01:00", "--names", names});
  EXPECT_THAT(top.out, testing::StartsWith("hosts, 2026-11-25 00:00 to 01:00 UTC, from the hours' "
                                           "totals (exact)\n"));
  EXPECT_THAT(top.out, testing::ContainsRegex(" 10.0.0.2 +web server "));
  EXPECT_THAT(top.out, testing::ContainsRegex(" 10.0.0.1 +office "));
  EXPECT_THAT(top.out, testing::ContainsRegex(" \\(others, 190 more\\) "));
  EXPECT_THAT(top.out, testing::HasSubstr("no data 2026-11-25 00:17 to 00:20 UTC: not running\n"));
  EXPECT_THAT(top.out, testing::HasSubstr("lost on the way: 1,980 datagrams from 192.0.2.1 "));
  EXPECT_THAT(ask({"exporters"}).out, testing::ContainsRegex(" Clock .* -1\\.5 s "));
  const ProgramResult csv = ask({"flows", "tcp", "--group-by", "as", "--csv", "--top", "1"});
  EXPECT_THAT(csv.out, testing::StartsWith("as,as_name,share,bytes,bits_per_second,packets,"));
  EXPECT_THAT(csv.out, testing::HasSubstr("\nAS64500,,"));
  const ProgramResult none = ask({"flows", "host 192.0.2.77"});
  EXPECT_THAT(none.out, testing::HasSubstr("\nnothing matches\n"));
}

TEST_F(Questions, ThatCannotBeAreTold) {
  const std::pair<std::vector<std::string>, const char*> cases[] = {
      {{"top", "hosts"}, "of --clickhouse URL or of --read CAPTURE"},
      {{"top", "hosts", "--store", directory_, "--read", "x"}, "asked of --store DIR, "},
      {{"top", "hosts", "--read", "/nowhere.pcap", "--plugin", FakePlugin()},
       "nowhere.pcap: No such file"},
      {{"top", "hosts", "--store", "/nowhere"}, "there is no store in /nowhere"},
      {{"top", "frob", "--store", directory_}, "there is no group 'frob'; there are as, "},
      {{"top", "hosts", "--by", "frob", "--store", directory_}, "hosts are not counted by frob"},
      {{"top", "as", "--by", "packets", "--store", directory_}, "are not counted by packets"},
      {{"top", "hosts", "--from", "noon", "--store", directory_}, "--from: 'noon' is no time"},
      {{"flows", "hots 1.2.3.4", "--store", directory_}, "there is no 'hots' to ask for"},
      {{"flows", "--group-by", "src,colour", "--store", directory_}, "flows have no 'colour'"},
      {{"flows", "--sort", "size", "--store", directory_}, "not by 'size'"},
      {{"series", "--step", "90", "--store", directory_}, "90 seconds are no whole minutes"},
      {{"series", "--step", "often", "--store", directory_}, "'often' is no length such as 5m"},
      {{"top", "hosts", "--step", "5m", "--store", directory_}, "with --json alone"},
      {{"flows", "--step", "5m", "--json", "--store", directory_}, "alone, with --group-by"},
      {{"series", "tcp", "--host", "10.0.0.1", "--store", directory_}, "are two questions"},
      {{"compare", "hosts", "--store", directory_}, "--against is required"},
      {{"compare", "hosts", "--against", "yesterday", "--new-peers", "--store", directory_},
       "--of for the address of one"},
      {{"top", "hosts", "--names", "/nowhere", "--store", directory_}, "/nowhere cannot be read"},
  };
  for (const auto& [arguments, text] : cases) {
    const ProgramResult result = RunProgram(arguments);
    EXPECT_NE(result.status, 0) << text;
    EXPECT_THAT(result.err, testing::HasSubstr(text));
  }
}

struct Said {
  const char* from;
  const char* to;
  const char* span;  // in UTC, or what is wrong
};

TEST(Times, AreWhatPeopleMean) {
  const Zone zone(true);
  const std::int64_t now = zone.Time({2026, 11, 25, 9, 30, 0});
  constexpr Said kCases[] = {
      {"", "", "2026-11-25 08:30 to 09:30 UTC"},
      {"-24h", "", "2026-11-24 09:30 to 2026-11-25 09:30 UTC"},
      {"02:00", "03:00", "2026-11-25 02:00 to 03:00 UTC"},
      {"22:00", "02:00", "2026-11-24 22:00 to 2026-11-25 02:00 UTC"},
      {"22:00", "", "2026-11-24 22:00 to 2026-11-25 09:30 UTC"},
      {"09:00", "11:00", "2026-11-25 09:00 to 11:00 UTC"},
      {"yesterday", "", "2026-11-24 00:00 to 24:00 UTC"},
      {"yesterday", "06:30", "2026-11-24 00:00 to 06:30 UTC"},
      {"yesterday 22:00", "today", "2026-11-24 22:00 to 2026-11-25 09:30 UTC"},
      {"today", "", "2026-11-25 00:00 to 09:30 UTC"},
      {"2026-11-20", "2026-11-21", "2026-11-20 00:00 to 2026-11-22 00:00 UTC"},
      {"2026-11-24T22:00:05Z", "now", "2026-11-24 22:00:05 to 2026-11-25 09:30 UTC"},
      {"", "08:00", "2026-11-25 07:00 to 08:00 UTC"},
      {"@1795564800", "-1h", "2026-11-25 00:00 to 08:30 UTC"},
      {"2:00", "24:00", "2026-11-25 02:00 to 24:00 UTC"},
      {"-1h", "-2h", "the span ends, 2026-11-25 07:30, before"},
      {"2026-02-30", "", "is no time such as"},
      {"25:00", "", "is no time such as"},
      {"-1y", "", "is no time such as"},
      {"yesterday 2", "", "is no time such as"},
      {"-99999999999999999d", "", "is no time such as"},
  };
  for (const Said& said : kCases) {
    std::string found;
    try {
      found = SpanText(ResolveSpan({said.from, said.to}, 3600, now, zone), zone);
    } catch (const UsageError& error) {
      found = error.what();
    }
    EXPECT_THAT(found, testing::HasSubstr(said.span)) << said.from << " to " << said.to;
  }
  const TimeSpan span = ResolveSpan({"09:00", "09:30"}, 3600, now, zone);
  EXPECT_EQ(SpanText(ResolveAgainst("yesterday", span, now, zone), zone),
            "2026-11-24 09:00 to 09:30 UTC");
  EXPECT_EQ(SpanText(ResolveAgainst("-48h", span, now, zone), zone),
            "2026-11-23 09:30 to 10:00 UTC");
}

}  // namespace
}  // namespace flow::host::test
