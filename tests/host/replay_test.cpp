// SPDX-License-Identifier: Apache-2.0
// Whole replays with a plug-in that is known by heart.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "host/policy/default_policies.h"
#include "tests/host/captures.h"
#include "tests/host/program.h"

namespace flow::host::test {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

// A datagram of 30 bytes that looks like NetFlow v5; its last letter tells the meter what to do.
Udp Datagram(char letter, std::uint16_t source_port = 50000) {
  return {
      .payload = FromHex("0005 0000") + Text("........................." + std::string(1, letter)),
      .source_port = source_port};
}

Udp FromExporter(std::uint32_t number, char letter) {
  Udp datagram = Datagram(letter);
  datagram.source += number;
  return datagram;
}

class Replay : public testing::Test {
 protected:
  ProgramResult Run(const std::vector<Bytes>& packets, std::vector<std::string> options = {}) {
    Capture{1, packets}.Write(folder_ / "a.pcap");
    options.insert(options.begin(),
                   {"replay", "--plugin", FakePlugin(), "--config", (folder_ / "config").string()});
    options.push_back((folder_ / "a.pcap").string());
    return RunProgram(options);
  }

  const TemporaryFolder folder_;
};

// The first two values of each row of a database.
std::string Query(const std::filesystem::path& path, const char* query) {
  sqlite3* database = nullptr;
  EXPECT_EQ(sqlite3_open(path.c_str(), &database), SQLITE_OK);
  std::string rows;
  const auto collect = [](void* out, int, char** values, char**) {
    *static_cast<std::string*>(out) += std::string(values[0]) + " " + values[1] + "|";
    return 0;
  };
  sqlite3_exec(database, query, collect, &rows, nullptr);
  sqlite3_close(database);
  return rows;
}

Bytes On(const Udp& udp) { return Ethernet(udp.Packet()); }

TEST_F(Replay, SumsUpOnTheTerminal) {
  Udp elsewhere = Datagram('.');
  elsewhere.port = 9996;
  const ProgramResult result =
      Run({On(Datagram('.')), On(Datagram('.')), On(elsewhere), Ethernet(FromHex("00")),
           On({Text("short")}), On(Datagram('R'))},
          {"--exact"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out,
              HasSubstr("a.pcap: 6 packets\n2023-11-14 22:13:20 to 2023-11-14 22:13:25"));
  EXPECT_THAT(result.out, HasSubstr("  Export datagrams  4 (95 B)\n"));
  EXPECT_THAT(result.out,
              HasSubstr("  Rejected          2: 1 too short, 1 refused by the meter\n"));
  EXPECT_THAT(result.out, HasSubstr("  Flow records      2\n"));
  EXPECT_THAT(result.out,
              HasSubstr("2: 1 UDP to ports that no protocol claims (9996), 1 malformed"));
  EXPECT_THAT(result.out, HasSubstr("10.0.0.1  100.0%     60        2\n"));
  EXPECT_THAT(result.out, HasSubstr("Fakes: Things made up (all 1)"));
  EXPECT_THAT(result.out, HasSubstr("a\\x1B[31mb"));  // no colours from the wire
  EXPECT_THAT(result.out, HasSubstr("tcp 10.0.0.1:* <-> 10.0.0.2:80"));
}

TEST_F(Replay, TakesFurtherPortsAndGroups) {
  Udp elsewhere = Datagram('.');
  elsewhere.port = 9996;
  const ProgramResult result =
      Run({On(elsewhere)}, {"--port", "FAKE=9996", "--group", "Hosts", "--raw-keys"});
  EXPECT_THAT(result.out, HasSubstr("0A.00.00.01"));
  EXPECT_THAT(result.out, Not(HasSubstr("Fakes")));
}

// The plug-in sees 240.0.0.1; nobody else may call himself that.
TEST_F(Replay, TakesExportersOverIpv6) {
  const Bytes payload = Datagram('.').payload;
  Udp disguised = Datagram('.');
  disguised.source = 0xF0000001;
  const Bytes shim = Text("OMBR") + FromHex("F0000001") + Text("LNSM");
  const Bytes agent = FromHex("00000005 00000001 F0000001");
  const ProgramResult result =
      Run({On(Datagram('.')), Ethernet(Udp6{payload}.Packet()), On(disguised),
           On({.payload = shim + payload}), On({.payload = agent + payload}),
           Ethernet(Udp6{.payload = payload, .port = 9996}.Packet())},
          {"--json", "-"});
  EXPECT_EQ(result.status, 0);
  const json document = json::parse(result.out);
  EXPECT_EQ(document["records"], 2);
  EXPECT_EQ(document["exporters"][0]["address"], "10.0.0.1");
  EXPECT_EQ(document["exporters"][1]["address"], "2001:db8::1");
  EXPECT_EQ(document["packets"]["other"]["reserved_exporter"], 3);
  EXPECT_EQ(document["packets"]["udp_unclaimed"], 1);
}

TEST_F(Replay, WritesAllFormats) {
  const ProgramResult result =
      Run({On(Datagram('L')), On(Datagram('.', 50001))},
          {"--json", (folder_ / "a.json").string(), "--csv", (folder_ / "csv").string(), "--sqlite",
           (folder_ / "a.db").string(), "--top", "0"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, Not(HasSubstr("Hosts")));

  const json document = json::parse(ReadFile(folder_ / "a.json"));
  EXPECT_EQ(document["records"], 2);
  EXPECT_EQ(document["exporters"].size(), 2U);
  const json& flows = document["groups"].back();
  EXPECT_EQ(flows["id"], "flows");
  EXPECT_EQ(flows["keys"][0]["bytes_forward"], 60);
  EXPECT_EQ(flows["keys"][0]["volume_packets_forward"], 2);

  EXPECT_THAT(ReadFile(folder_ / "csv/hosts.csv"),
              HasSubstr("key,text,bytes,bytes_in,bytes_out,packets,"));
  EXPECT_THAT(ReadFile(folder_ / "csv/hosts.csv"), HasSubstr("\n0A.00.00.01,10.0.0.1,60,0,0,2,"));

  EXPECT_THAT(ReadFile(folder_ / "csv/key_notes.csv"),
              HasSubstr("\nhosts,0A.00.00.01,label,\"say \"\"hello\"\"\"\n"));

  EXPECT_EQ(Query(folder_ / "a.db", "SELECT text, bytes FROM hosts"), "10.0.0.1 60|");
  EXPECT_EQ(Query(folder_ / "a.db", "SELECT port, records FROM exporters"), "50000 1|50001 1|");
}

TEST_F(Replay, OneOutputThatFailsLeavesTheOthers) {
  const ProgramResult result =
      Run({On(Datagram('.'))}, {"--sqlite", "/nowhere/a.db", "--json", "-"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("database /nowhere/a.db cannot be written"));
  EXPECT_EQ(json::parse(result.out)["records"], 1);
}

TEST_F(Replay, TracesEveryCallInOrder) {
  const ProgramResult result = Run({On(Datagram('.'))}, {"--trace", "-", "--top", "0"});
  EXPECT_THAT(result.out, HasSubstr("> Fake Handler 1 GenerateParse 10.0.0.1:50000 30 bytes\n"
                                    "    GetBuffer payload 30\n"
                                    "    SetParsedLength 30\n"
                                    "< 0\n"
                                    "> Fake Meter 1 Count 10.0.0.1:50000 30 bytes at 1700000000\n"
                                    "    GetBuffer payload 30\n"
                                    "    MarkRecord\n"
                                    "    UpdateCounter2 hosts \"0A.00.00.01\" 0+=30 3+=1\n"
                                    "    UpdateCounter fakes \"a\\x1B[31mb\" 0+=1\n"));
}

TEST_F(Replay, SpreadsExportersAndPassesMessagesToTheOthers) {
  std::vector<Bytes> packets;
  for (std::uint32_t i = 1; i <= 64; ++i) packets.push_back(On(FromExporter(i, '.')));
  packets.push_back(On(Datagram('P')));
  const ProgramResult result = Run(packets, {"--instances", "3", "--json", "-"});
  const json document = json::parse(result.out);
  EXPECT_EQ(document["records"], 64);
  EXPECT_EQ(document["exporters"].size(), 65U);
  for (const json& group : document["groups"]) {
    if (group["id"] == "hosts") {
      EXPECT_EQ(group["keys"][0]["bytes"], 64 * 30);
    }
  }
  // All meters but the one that has posted.
  std::size_t heard = 0;
  for (std::size_t at = 0;
       (at = result.err.find("a neighbour has spoken", at)) != std::string::npos; ++at) {
    ++heard;
  }
  EXPECT_EQ(heard, 2U);
}

TEST_F(Replay, CountsMessagesThatRepeatThemselves) {
  const std::vector<Bytes> packets(3, On(Datagram('P')));
  EXPECT_THAT(Run(packets, {"--instances", "2"}).err,
              HasSubstr("Fake Meter 2: warning: a neighbour has spoken\n(and 2 times more)\n"));
}

TEST_F(Replay, LeadsExportersToTheLaneWithLeastToDo) {
  const std::string heard =
      Run({On(Datagram('P')), On(FromExporter(1, 'P'))}, {"--instances", "2"}).err;
  EXPECT_THAT(heard, HasSubstr("Fake Meter 1: warning: a neighbour has spoken"));
  EXPECT_THAT(heard, HasSubstr("Fake Meter 2: warning: a neighbour has spoken"));
}

// One behind a forwarder's shim is who the shim says.
TEST_F(Replay, LeadsAllPortsAndForwardersOfAnExporterToOneLane) {
  Udp forwarded = FromExporter(1, 'P');
  forwarded.payload = Text("OMBR") + FromHex("0A000001") + Text("LNSM") + forwarded.payload;
  const std::string heard =
      Run({On(Datagram('P')), On(Datagram('P', 50001)), On(forwarded)}, {"--instances", "2"}).err;
  EXPECT_THAT(heard,
              HasSubstr("Fake Meter 2: warning: a neighbour has spoken\n(and 2 times more)"));
}

TEST_F(Replay, ReportsWhatStandsBeforeTheDamage) {
  Capture{1, {On(Datagram('.')), On(Datagram('.'))}}.Write(folder_ / "b.pcap");
  const std::string whole = ReadFile(folder_ / "b.pcap");
  WriteFile(folder_ / "cut.pcap", whole.substr(0, whole.size() - 10));
  const ProgramResult result = Run(
      {On(Datagram('.'))}, {(folder_ / "missing.pcap").string(), (folder_ / "cut.pcap").string()});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("missing.pcap: No such file"));
  EXPECT_THAT(result.err, HasSubstr("cut.pcap: damaged, read up to there"));
  EXPECT_THAT(result.out, HasSubstr("cut.pcap: 1 packets, not read to its end"));
  EXPECT_THAT(result.out, HasSubstr("Flow records      2"));
}

TEST_F(Replay, ReportsWhenThePluginEndsTheProcess) {
  const ProgramResult result = Run({On(Datagram('.')), On(Datagram('B')), On(Datagram('.'))},
                                   {"--json", (folder_ / "a.json").string()});
  EXPECT_EQ(result.status, 255);
  EXPECT_THAT(result.err, HasSubstr("flowhost: the plug-in ended the process"));
  EXPECT_THAT(result.out, testing::StartsWith("XML Parsing error\n"));
  EXPECT_THAT(result.out, HasSubstr("Flow records      1"));
  const json document = json::parse(ReadFile(folder_ / "a.json"));
  EXPECT_EQ(document["records"], 1);
  EXPECT_EQ(document["packets"]["total"], 2) << "with the one that ended it";
}

// In lanes' threads too, all at once, with what all have counted.
TEST_F(Replay, ReportsWhenThePluginEndsALane) {
  std::vector<Bytes> packets;
  for (std::uint32_t i = 1; i <= 64; ++i) packets.push_back(On(FromExporter(i, '.')));
  for (std::uint32_t i = 1; i <= 64; ++i) packets.push_back(On(FromExporter(i, 'B')));
  const ProgramResult result = Run(packets, {"--instances", "4", "--top", "0"});
  EXPECT_EQ(result.status, 255) << result.err;
  EXPECT_THAT(result.err, HasSubstr("flowhost: the plug-in ended the process"));
  EXPECT_THAT(result.out, HasSubstr("  Flow records"));
}

// The intake waits for room in the queue of the lane that ends the process, which another lane has
// let go on; its own thread then counts what it had on the way.
TEST_F(Replay, CountsWhatArrivesWhileThePluginEndsALane) {
  const auto large = [](std::uint32_t exporter, char letter) {
    Udp datagram = FromExporter(exporter, letter);
    datagram.payload.insert(datagram.payload.end() - 1, 60000, '.');
    return On(datagram);
  };
  std::vector<Bytes> packets{On(FromExporter(1, 'W')), On(FromExporter(1, 'B'))};
  packets.insert(packets.end(), 36, large(1, '.'));
  packets.push_back(large(2, 'G'));
  packets.insert(packets.end(), 4, large(2, '.'));
  packets.insert(packets.end(), 64, large(1, '.'));
  setenv("FAKE_PLUGIN_GATE", (folder_ / "gate").c_str(), 1);
  const ProgramResult result =
      Run(packets, {"--instances", "2", "--json", (folder_ / "a.json").string()});
  unsetenv("FAKE_PLUGIN_GATE");
  EXPECT_EQ(result.status, 255) << result.err;
  const json report = json::parse(ReadFile(folder_ / "a.json"));
  std::uint64_t told = report["lost_datagrams"]["queue"];
  EXPECT_GE(told, 36);
  for (const json& exporter : report["exporters"]) told += std::uint64_t{exporter["datagrams"]};
  EXPECT_EQ(report["packets"]["total"], told);
  EXPECT_EQ(report["captures"][0]["packets"], told);
}

// After reports have been made, too: what they use must still be there.
TEST_F(Replay, ReportsWhenThePluginEndsTheProcessLater) {
  std::vector<Bytes> packets(25, On(Datagram('.')));
  packets.push_back(On(Datagram('B')));
  const ProgramResult result = Run(packets, {"--instances", "2", "--interval", "10"});
  EXPECT_EQ(result.status, 255);
  EXPECT_THAT(result.out, HasSubstr("\nThe run, 2023-11-14 22:13:20 to "));
  EXPECT_THAT(result.out, HasSubstr("  Flow records      25\n"));
}

// Packets are a second apart, the first 20 seconds past the minute.
TEST_F(Replay, ReportsByIntervals) {
  std::vector<Bytes> packets(45, On(Datagram('.')));
  packets.front() = On(Datagram('L'));
  Query(folder_ / "a.db", "CREATE TABLE exporters (bucket, port)");  // as an older version made it
  const ProgramResult result =
      Run(packets, {"--interval", "30", "--top", "0", "--sqlite", (folder_ / "a.db").string(),
                    "--append", "--instances", "2"});
  EXPECT_EQ(result.status, 0) << result.err;
  std::vector<std::string> titles;
  std::vector<std::string> records;
  std::istringstream lines(result.out);
  for (std::string line; std::getline(lines, line);) {
    if (line.find(" to ") != std::string::npos) titles.push_back(line);
    if (line.find("Flow records") != std::string::npos) records.push_back(line.substr(20));
  }
  EXPECT_THAT(titles,
              testing::ElementsAre("Interval, 2023-11-14 22:13:20 to 2023-11-14 22:13:30 UTC",
                                   "Interval, 2023-11-14 22:13:30 to 2023-11-14 22:14:00 UTC",
                                   "Interval, 2023-11-14 22:14:00 to 2023-11-14 22:14:04 UTC",
                                   "The run, 2023-11-14 22:13:20 to 2023-11-14 22:14:04 UTC"));
  EXPECT_THAT(records, testing::ElementsAre("10", "30", "5", "45"));
  EXPECT_EQ(Query(folder_ / "a.db", "SELECT bucket, bytes FROM hosts ORDER BY bucket"),
            "1700000000 1200|1700000040 150|");
  EXPECT_EQ(Query(folder_ / "a.db", "SELECT bucket, value FROM key_notes ORDER BY bucket"),
            "1700000000 say \"hello\"|1700000040 say \"hello\"|")
      << "a name is told once, and holds in later intervals";
  EXPECT_EQ(Query(folder_ / "a.db", "SELECT port, records FROM exporters"), "50000 40|50000 5|");
}

TEST_F(Replay, LeavesWhatACollectorCountedUnlessItIsTold) {
  const std::string path = (folder_ / "a.db").string();
  const std::vector<Bytes> packets(45, On(Datagram('.')));
  const auto run = [&](std::vector<std::string> options) {
    options.insert(options.begin(), {"--top", "0", "--sqlite", path});
    return Run(packets, options);
  };
  const char* const kBuckets = "SELECT bucket, bytes FROM hosts ORDER BY bucket";
  EXPECT_EQ(run({"--interval", "30"}).status, 0);
  const std::string once = Query(path, kBuckets);
  EXPECT_EQ(once, "1700000000 1200|1700000040 150|");
  for (const auto& options : {std::vector<std::string>{}, {"--interval", "30"}}) {
    const ProgramResult refused = run(options);
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.err, HasSubstr("holds what a collector has counted: --replace"));
    EXPECT_EQ(Query(path, kBuckets), once);
  }
  EXPECT_EQ(run({"--interval", "30", "--append"}).status, 0);
  EXPECT_EQ(Query(path, kBuckets), once) << "the same buckets are not there twice";
  EXPECT_EQ(run({"--append"}).status, 2) << "a report of the whole has no buckets";
  EXPECT_EQ(run({"--replace"}).status, 0);
  EXPECT_EQ(Query(path, "SELECT sum(bytes), 0 FROM hosts"), "1350 0|");
  EXPECT_EQ(run({}).status, 0) << "a report takes another's place";
  EXPECT_THAT(run({"--interval", "30", "--append"}).err, HasSubstr("holds a report, to which no"));
  Query(path, "PRAGMA application_id=1");
  EXPECT_THAT(run({}).err, HasSubstr("holds tables of others"));
}

TEST_F(Replay, TakesTimesThatNoClockHas) {
  const Bytes packet = On(Datagram('.'));
  Bytes file = FromHex(
      "0A0D0D0A 1C000000 4D3C2B1A 0100 0000 FFFFFFFFFFFFFFFF 1C000000"
      "01000000 14000000 0100 0000 00000400 14000000");
  const auto word = [](std::size_t value) {
    return Bytes{static_cast<std::uint8_t>(value), static_cast<std::uint8_t>(value >> 8), 0, 0};
  };
  const Bytes padding((4 - packet.size() % 4) % 4);
  const Bytes size = word(32 + packet.size() + padding.size());
  for (const char* const time : {"FFFFFF7F FFFFFFFF", "FFFFFFFF FFFFFFFF", "00000000 00000000"}) {
    file = file + FromHex("06000000") + size + FromHex("00000000") + FromHex(time) +
           word(packet.size()) + word(packet.size()) + packet + padding + size;
  }
  std::ofstream(folder_ / "b.pcapng", std::ios::binary)
      .write(reinterpret_cast<const char*>(file.data()), static_cast<std::streamsize>(file.size()));
  const ProgramResult result =
      RunProgram({"replay", "--plugin", FakePlugin(), "--config", (folder_ / "config").string(),
                  (folder_ / "b.pcapng").string()});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("Export datagrams  3"));
}

TEST_F(Replay, WritesDefaultPoliciesOnce) {
  const ProgramResult first = Run({On(Datagram('.'))});
  EXPECT_THAT(first.err, HasSubstr("wrote the default policy"));
  EXPECT_EQ(ReadFile(folder_ / "config/NetflowCounterPolicy.xml"),
            DefaultPolicy("NetflowCounterPolicy.xml"));
  WriteFile(folder_ / "config/NetflowCounterPolicy.xml", "mine");
  EXPECT_EQ(Run({On(Datagram('.'))}).err, "");
  EXPECT_EQ(ReadFile(folder_ / "config/NetflowCounterPolicy.xml"), "mine");
}

TEST_F(Replay, StopsWhenAMeterRefusesItsPolicy) {
  WriteFile(folder_ / "config/NetflowCounterPolicy.xml", "refuse");
  const ProgramResult result = Run({On(Datagram('.'))});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("Fake Meter 1: error: the policy says no\n"
                                    "flowhost: Fake Meter 1 refused to start (0x80000002)"));
}

}  // namespace
}  // namespace flow::host::test
