// SPDX-License-Identifier: Apache-2.0
// What was dropped here is not lost on the way as well.

#include <gtest/gtest.h>

#include "host/intake/dropped_numbers.h"
#include "host/period/kernel_drops.h"
#include "tests/host/captures.h"

namespace flow::host::test {
namespace {

const Endpoint kExporter{IpAddress::Ipv4(0xC0000201), 50000};
constexpr Bytes (*Hex)(const std::string&) = FromHex;

Bytes V5(const std::string& number, const std::string& count) {
  return Hex("0005" + count + "00000000 00000000 00000000" + number + "0102 0000") + Bytes(48 * 30);
}

Bytes V9(const std::string& number) {
  return Hex("0009 0001 00000000 00000000" + number + "00000007 0100 000C 00000000 00000000");
}

Bytes Ipfix(const std::string& number) {
  return Hex("000A 001C 00000000" + number + "00000007 0100 000C 00000000 00000000");
}

// With a flow sample, which has a record, and an expanded counter sample of the same numbers.
Bytes SFlow(const std::string& number) {
  return Hex("00000005 00000001 0A000001 00000000" + number + "00000000 00000003" +
             "00000001 00000020" + number + "00000003 00000000 00000000 00000000 00000000" +
             "00000000 00000000" + "00000009 00000004 00000000" + "00000004 00000010" + number +
             "00000000 00000005 00000000");
}

// Of IPv4 and UDP, from the exporter.
const Bytes kHeaders = Bytes(12) + Hex("C0000201") + Bytes(12);

struct Kind {
  const char* name;
  std::vector<Bytes> datagrams;  // all but the first and the last are dropped
  std::uint64_t lost;            // were they not known
  std::uint64_t lost_samples = 0;
  std::uint64_t really_lost = 0;
};

const Kind kKinds[] = {
    {"V5", {V5("00000000", "001E"), V5("0000001E", "0002"), V5("00000020", "001E")}, 2},
    {"V5AndOnTheWay",
     {V5("00000000", "001E"), V5("0000001E", "001E"), V5("00000050", "001E")},
     50,
     0,
     20},
    {"V9", {V9("00000001"), V9("00000002"), V9("00000003"), V9("00000004")}, 2},
    {"Ipfix", {Ipfix("00000000"), Ipfix("00000001"), Ipfix("00000003"), Ipfix("00000014")}, 19},
    {"SFlow", {SFlow("00000001"), SFlow("00000002"), SFlow("00000003"), SFlow("00000004")}, 2, 4},
};

class DroppedDatagrams : public testing::TestWithParam<Kind> {
 protected:
  // What the exporter lost when the datagrams in the middle were dropped, told or not.
  ExporterCounts Counts(bool told) {
    ExporterTable table;
    table.NoteForeignTemplates(
        Hex("45000000 00000000 00110000 C0000201 0A000001 C350 0807"
            "0002 0010 0100 0002 0008 0004 0001 0004"));
    const auto& datagrams = GetParam().datagrams;
    table.Note({kExporter, 0, datagrams.front(), 1});
    DroppedNumbers dropped;
    for (std::size_t i = 1; told && i + 1 < datagrams.size(); ++i) {
      const Bytes packet = kHeaders + datagrams[i];
      dropped.Add({0, 0, packet, 20, datagrams[i].size(), kExporter, {}});
    }
    for (const auto& entry : dropped.entries()) {
      table.NoteDropped(entry.exporter, entry.time, dropped.BytesOf(entry));
    }
    table.Note({kExporter, 0, datagrams.back(), 1});
    return table.Rows().at(0).counts;
  }
};

TEST_P(DroppedDatagrams, AreNotMissing) {
  const ExporterCounts untold = Counts(false);
  EXPECT_EQ(untold.gaps.Lost(), GetParam().lost);
  EXPECT_EQ(untold.sample_gaps.Lost(), GetParam().lost_samples);
  const ExporterCounts told = Counts(true);
  EXPECT_EQ(told.gaps.Lost(), GetParam().really_lost);
  EXPECT_EQ(told.sample_gaps.Lost(), 0U);
  EXPECT_EQ(told.datagrams, 2U);
  EXPECT_EQ(told.dropped, GetParam().datagrams.size() - 2);
}

// Each datagram at every length, in a block of that size.
TEST_P(DroppedDatagrams, AreReadNoFurtherThanTheyGo) {
  ExporterTable table;
  for (const Bytes& datagram : GetParam().datagrams) {
    for (std::size_t length = 0; length <= datagram.size() && length < 120; ++length) {
      const Bytes packet(28 + length);
      Bytes cut = packet;
      std::copy_n(datagram.begin(), length, cut.begin() + 28);
      DroppedNumbers dropped;
      dropped.Add({0, 0, cut, 20, length, kExporter, {}});
      const Bytes kept(dropped.BytesOf(dropped.entries()[0]).begin(),
                       dropped.BytesOf(dropped.entries()[0]).end());
      EXPECT_LE(kept.size(), length);
      table.NoteDropped(kExporter, 0, kept);
    }
  }
}

void PrintTo(const Kind& kind, std::ostream* out) { *out << kind.name; }

INSTANTIATE_TEST_SUITE_P(, DroppedDatagrams, testing::ValuesIn(kKinds),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(DroppedNumbers, KeepTheShim) {
  const Bytes shim = Text("OMBR") + Hex("C0000202") + Text("LNSM");
  const Bytes datagram = shim + V9("00000001");
  DroppedNumbers dropped;
  const Bytes packet = Bytes(28) + datagram;
  dropped.Add({0, 0, packet, 20, datagram.size(), kExporter, {}});
  const auto bytes = dropped.BytesOf(dropped.entries().at(0));
  EXPECT_EQ(ShimExporter(bytes), IpAddress::Ipv4(0xC0000202));
  EXPECT_EQ(WithoutShim(bytes, IpAddress::Ipv4(0xC0000202)).size(), 24U);
}

// Exporters of three ports, each of which lost some in a time.
struct Times {
  const char* name;
  std::vector<PortDrops> drops;  // time after time
  std::vector<std::array<std::uint64_t, 3>>
      missing;                        // v9 datagrams on 2055 and 2056, flows on 2055
  std::array<std::uint64_t, 3> lost;  // on the way, in all
};

const Times kTimes[] = {
    {"AllHere", {{{2055, 100}}}, {{40, 7, 600}}, {0, 7, 0}},
    {"SomeHere", {{{2055, 30}}}, {{40, 7, 600}}, {20, 7, 300}},
    {"GapShowsLater", {{{2055, 50}}, {}}, {{0, 0, 0}, {40, 0, 0}}, {0, 0, 0}},
    {"ButNotMuchLater", {{{2055, 50}}, {}, {}}, {{0, 0, 0}, {0, 0, 0}, {40, 0, 0}}, {40, 0, 0}},
    {"NotTwice", {{{2055, 50}}, {}}, {{50, 0, 0}, {40, 0, 0}}, {40, 0, 0}},
    {"OtherPort", {{{2056, 9}, {6343, 1}}}, {{40, 7, 600}}, {40, 0, 600}},
};

class KernelDropsOf : public testing::TestWithParam<Times> {};

TEST_P(KernelDropsOf, AreTakenOff) {
  const ExportSource sources[] = {{{IpAddress::Ipv4(1), 1}, {false, 9}},
                                  {{IpAddress::Ipv4(2), 1}, {false, 9}},
                                  {{IpAddress::Ipv4(3), 1}, {false, 5}}};
  KernelDrops kernel;
  ExporterTable sum;
  for (std::size_t i = 0; i < GetParam().drops.size(); ++i) {
    std::vector<Harvest> harvests(2);  // of two lanes
    for (std::size_t k = 0; k < 3; ++k) {
      const Bytes any = k == 2 ? V5("00000000", "001E") : V9("00000000");
      ExporterTable& table = harvests[k % 2].exporters;
      const std::uint16_t port = k == 1 ? 2056 : 2055;
      MeteredDatagram datagram{sources[k].endpoint, 0, any, 1, Refusal::kNone, {}, port};
      if (k == 2) {  // another lane helps
        datagram.records = 30;
        datagram.has_numbers = false;
        harvests[1].exporters.Note(datagram);
        table.NoteNumbersOf(datagram);
      } else {
        table.Note(datagram);
      }
      table.ForEach([&](const ExportSource& source, ExporterCounts& counts) {
        if (source == sources[k]) counts.gaps.missing = GetParam().missing[i][k];
      });
    }
    // What queues drop without their numbers counts like what sockets do.
    PortDrops of_sockets = GetParam().drops[i];
    for (auto& [port, datagrams] : of_sockets) {
      harvests[1].dropped_unseen[port] = datagrams / 2;
      datagrams -= datagrams / 2;
    }
    kernel.TakeOff(of_sockets, harvests);
    for (const Harvest& harvest : harvests) sum.Merge(harvest.exporters);
  }
  for (std::size_t k = 0; k < 3; ++k) {
    EXPECT_EQ(sum.Rows().at(k).counts.gaps.Lost(), GetParam().lost.at(k)) << k;
  }
}

void PrintTo(const Times& times, std::ostream* out) { *out << times.name; }

INSTANTIATE_TEST_SUITE_P(, KernelDropsOf, testing::ValuesIn(kTimes),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace flow::host::test
