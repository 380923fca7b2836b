// SPDX-License-Identifier: Apache-2.0
// What the program answers to orders that it cannot or need not carry out.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/host/captures.h"
#include "tests/host/program.h"

namespace flow::host::test {
namespace {

using testing::HasSubstr;

struct Case {
  const char* name;
  std::vector<std::string> arguments;
  int status;
  const char* text;  // on standard error, or on standard output when the status is 0
};

class CommandLine : public testing::TestWithParam<Case> {};

TEST_P(CommandLine, Answers) {
  const ProgramResult result = RunProgram(GetParam().arguments);
  EXPECT_EQ(result.status, GetParam().status);
  EXPECT_THAT(result.status == 0 ? result.out : result.err, HasSubstr(GetParam().text));
  if (result.status != 0) {
    EXPECT_THAT(result.err, testing::StartsWith("flowhost: "));
  }
}

INSTANTIATE_TEST_SUITE_P(
    All, CommandLine,
    testing::ValuesIn<Case>({
        {"Nothing", {}, 2, "a command is required"},
        {"UnknownCommand", {"frob"}, 2, "a command is required"},
        {"Help", {"--help"}, 0, "flowhost replay router.pcap"},
        {"HelpOfReplay", {"replay", "--help"}, 0, "--port PROTOCOL=N"},
        {"Version", {"--version"}, 0, "flowhost 1."},
        {"NoCapture", {"replay"}, 2, "CAPTURE is required"},
        {"UnknownOption", {"replay", "--frob", "x"}, 2, "--frob"},
        {"HomeWithoutForm", {"replay", "--home", "10.0.0/8", "x"}, 2, "10.0.0/8 is no network"},
        {"HomeTooLong", {"replay", "--home", "10.0.0.0/33", "x"}, 2, "is no network"},
        {"PortZero", {"replay", "--port", "fake=0", "x"}, 2, "fake=0 is not of the form"},
        {"PortTooLarge", {"replay", "--port", "fake=65536", "x"}, 2, "is not of the form"},
        {"PortWithoutProtocol", {"replay", "--port", "9996", "x"}, 2, "is not of the form"},
        {"PortOfUnknownProtocol",
         {"replay", "--plugin", FakePlugin(), "--port", "netflow=9996", "x"},
         2,
         "no protocol is named netflow; there are Fake"},
        {"LogLevel", {"replay", "--log-level", "loud", "x"}, 2, "loud is none of error"},
        {"NoInstances", {"replay", "--instances", "0", "x"}, 2, "not in range"},
        {"SilentForTooLong", {"listen", "--silent-after", "5 min"}, 2, "--silent-after"},
        {"MemoryWithoutUnit", {"listen", "--memory", "512X"}, 2, "512X is no size such as 512M"},
        {"MemoryTooSmall", {"listen", "--memory", "63MiB"}, 2, "at least 64M"},
        {"MemoryTooLarge", {"listen", "--memory", "99999999999999G"}, 2, "is no size"},
        {"FewerThanNoRows", {"flows", "--top", "-1"}, 2, "--top: '-1' is negative"},
        {"FewerThanNoKeys", {"replay", "--top", " -1", "x"}, 2, "' -1' is negative"},
        {"LessThanNoFlows", {"listen", "--store-limit", "-5G"}, 2, "'-5G' is negative"},
        {"LessThanNoSpool", {"listen", "--spool-size", "-5"}, 2, "'-5' is negative"},
        {"TwoTopics", {"listen", "--kafka", "b:1", "--kafka-topics", "a,b"}, 2, "'a,b' is no name"},
        {"AllowedWithoutForm", {"listen", "--allow", "10.0.0"}, 2, "--allow: 10.0.0 is no network"},
        {"AllowedHalfOfIpv4",
         {"listen", "--allow", "::ffff:10.0.0.0/90"},
         2,
         "prefix is 96 or more"},
        {"HttpWithoutPort", {"listen", "--http", "127.0.0.1"}, 2, "is no address and port"},
        {"UnknownGroup",
         {"replay", "--plugin", FakePlugin(), "--group", "frob", "x"},
         2,
         "there is no frob; there are totals, fakes, hosts"},
        {"PluginMissing", {"info", "--plugin", "/nowhere/lib.so"}, 1, "does not exist"},
        {"PluginIsText", {"info", "--plugin", "/etc/passwd"}, 1, "cannot be loaded"},
        {"PluginWithoutEntryPoints",
         {"info", "--plugin", EmptyPlugin()},
         1,
         "has no entry point SqPIInit"},
        {"CaptureMissing",
         {"replay", "--plugin", FakePlugin(), "/nowhere/a.pcap"},
         1,
         "a.pcap: No such file"},
        {"TraceElsewhere",
         {"replay", "--plugin", FakePlugin(), "--trace", "/nowhere/t", "x"},
         1,
         "/nowhere/t cannot be written"},
        {"ConfigElsewhere",
         {"replay", "--plugin", FakePlugin(), "--config", "/dev/null/c", "x"},
         1,
         "cannot be written"},
    }),
    [](const auto& row) { return std::string(row.param.name); });

TEST(Info, TellsWhatThePluginOffers) {
  const ProgramResult result = RunProgram({"info", "--plugin", FakePlugin()});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, HasSubstr("Fake Meter    meter, listener   1.0"));
  EXPECT_THAT(result.out, HasSubstr("Fake  7777       Fake Meter (counters and flows)"));
  EXPECT_THAT(result.out, HasSubstr("Counter group Fakes: Things made up"));
  EXPECT_THAT(result.out, HasSubstr("buckets of 1 min, top 7 kept, pruned from 500 to 100 keys"));
  EXPECT_THAT(result.out, HasSubstr("0  Made Up  Ups       4"));
  EXPECT_EQ(result.err, "");
}

}  // namespace
}  // namespace flow::host::test
