// SPDX-License-Identifier: Apache-2.0
// What the host says about exporters: versions, refusals, and data that cannot be decoded.

#include "host/intake/exporter_table.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "host/base/memory_budget.h"
#include "tests/host/captures.h"

namespace flow::host::test {
namespace {

const Endpoint kExporter{IpAddress::Ipv4(0xC0000201), 50000};

// A message of the template channel from 192.0.2.1:50000.
Bytes TemplateMessage(const std::string& set) {
  return FromHex("45000000 00000000 00110000 C0000201 0A000001 C350 0807") + FromHex(set);
}

const std::string kV9Header = "0009 0005 00000000 00000000 00000000 00000000";
const std::string kTemplate256 = "0000 0010 0100 0002 0008 0004 0001 0004";
const std::string kData256 = "0100 000C 0A000001 00000064";
const std::string kData300 = "012C 000C 0A000001 00000064";

class Exporters : public testing::Test {
 protected:
  void Datagram(const std::string& hex, std::uint64_t records = 0) {
    const Bytes bytes = FromHex(hex);
    table_.Note({kExporter, 0, bytes, records, Refusal::kNone});
  }
  void Post(const std::string& set) { table_.NoteTemplates(TemplateMessage(set)); }
  [[nodiscard]] ExporterCounts Counts() const { return table_.Rows().at(0).counts; }

  ExporterTable table_;
};

TEST_F(Exporters, MissTemplatesUntilTheyArrive) {
  Datagram(kV9Header + kData256 + kData256);
  EXPECT_EQ(Counts().unknown_sets, 2U);
  Post(kTemplate256);
  Datagram(kV9Header + kTemplate256);
  Datagram(kV9Header + kData256 + kData300, 1);
  EXPECT_EQ(Counts().unknown_sets, 3U);
  EXPECT_EQ(Counts().templates, 1U);
  EXPECT_EQ(Counts().datagrams, 3U);
  EXPECT_EQ(Counts().books.metered, 1U);
}

TEST_F(Exporters, AreAheadOrBehindByTheTimeInTheirHeaders) {
  constexpr Timestamp kArrival = 1'000'000'000 * kMicrosPerSecond;  // 3B9ACA00
  const std::string rest_of_v5 = "00000000 00000000";
  const struct {
    const char* what;
    std::string datagram;
    std::optional<Timestamp> offset;
  } rows[] = {
      {"v5, with nanoseconds", "0005 0000 00000000 3B9AC9FF 1DCD6500" + rest_of_v5, -500'000},
      {"v5, impossible ones", "0005 0000 00000000 3B9ACA01 FFFFFFFF" + rest_of_v5, 1'000'000},
      {"v1", "0001 0000 00000000 3B9ACA3C 00000000", 60'000'000},
      {"v9", "0009 0000 FFFFFFFF 3B9AC9FE 00000000 00000000", -2'000'000},
      {"IPFIX, the last second", "000A 0010 FFFFFFFF 00000000 00000000",
       3'294'967'295 * kMicrosPerSecond},
      {"a cut header", "000A 0010 FFFFFFFF 00000000 000000", {}},
      {"sFlow", "00000005 00000001 C0000201 00000000 00000001 3B9ACA00 00000000", {}},
  };
  for (const auto& row : rows) {
    ExporterTable table;
    table.Note({kExporter, kArrival, FromHex(row.datagram)});
    EXPECT_EQ(table.Rows().at(0).counts.clock_offset, row.offset) << row.what;
  }
}

TEST(StandsAlone, IsWhatNeedsNothingFromBefore) {
  const std::string v5 = "0000 00000000 00000000 00000000 00000000 00000000";
  const struct {
    const char* what;
    const IID& protocol;
    std::string datagram;
    bool alone;
  } rows[] = {
      {"v5", kNetflowProtocol, "0005" + v5, true},
      {"v1", kNetflowProtocol, "0001" + v5, true},
      {"v5 on a port of sFlow", kSFlowProtocol, "0005" + v5, false},
      {"v5, a record less than it says", kNetflowProtocol, "00050001" + v5.substr(4), false},
      {"v1, shorter than a meter claims", kNetflowProtocol, "0001000000000000", false},
      {"v9", kNetflowProtocol, "0009" + v5, false},
      {"IPFIX", kNetflowProtocol, "000A" + v5, false},
      {"a forwarder's shim", kNetflowProtocol, "4F4D4252" + v5, false},
      {"sFlow", kSFlowProtocol, "00000005" + v5, true},
      {"sFlow on a port of NetFlow", kNetflowProtocol, "00000005" + v5, false},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(StandsAlone(row.protocol, FromHex(row.datagram)), row.alone) << row.what;
  }
}

TEST_F(Exporters, KeepTheLatestClock) {
  ExporterCounts sum;
  const auto after = [&](Timestamp last_seen, std::optional<Timestamp> offset) {
    ExporterCounts counts;
    counts.last_seen = last_seen;
    counts.clock_offset = offset;
    sum.Add(counts);
    return sum.clock_offset;
  };
  EXPECT_EQ(after(5, 50), 50);
  EXPECT_EQ(after(4, 40), 50);
  EXPECT_EQ(after(6, {}), 50);  // refused datagrams tell nothing
  EXPECT_EQ(after(7, -70), -70);
}

TEST_F(Exporters, KnowATemplateFurtherUpInTheSameDatagram) {
  Post(kTemplate256);
  Datagram(kV9Header + kTemplate256 + kData256, 1);
  EXPECT_EQ(Counts().unknown_sets, 0U);
}

// Of two domains, each with its own template of the id.
TEST_F(Exporters, KeepTemplatesOfDomainsApart) {
  const auto post = [&](const char* domain, const std::string& set) {
    table_.NoteForeignTemplates(FromHex(domain) + TemplateMessage(set), true);
  };
  const std::string header = "0009 0005 00000000 00000000 00000000 ";
  post("00000001", kTemplate256);
  Datagram(header + "00000002" + kData256);
  EXPECT_EQ(Counts().unknown_sets, 1U);
  post("00000002", "0000 000C 0100 0001 0008 0004");
  Datagram(header + "00000001" + kData256, 1);
  Datagram(header + "00000002" + kData256, 2);
  EXPECT_EQ(Counts().books.described, 3U);
  table_.NoteForeignTemplates(FromHex("0000 01"), true);
}

TEST_F(Exporters, MissATemplateFurtherDown) {
  Post(kTemplate256);
  Datagram(kV9Header + kData256 + kTemplate256);
  EXPECT_EQ(Counts().unknown_sets, 1U);
}

TEST_F(Exporters, NeedNoneWhereThePolicyHasThem) {
  Datagram(kV9Header + kData256, 1);
  EXPECT_EQ(Counts().unknown_sets, 0U);
}

// Sets 256 of 8 bytes and 257 of 4 and a field of variable length; the second message is lost.
TEST_F(Exporters, LoseIpfixRecordsByTheirNumbers) {
  const auto message = [](const std::string& number, const std::string& sets) {
    const Bytes body = FromHex(sets);
    Bytes whole = FromHex("000A 0000 00000000 " + number + " 00000007") + body;
    whole[3] = static_cast<std::uint8_t>(whole.size());
    return whole;
  };
  const auto note = [&](const Bytes& bytes) {
    table_.Note({kExporter, 0, bytes, 1, Refusal::kNone});
  };
  const std::string templates =
      "0002 001C 0100 0002 0008 0004 0001 0004 0101 0002 0001 0004 0052 FFFF";
  Post(templates);
  note(message("00000000", templates));
  const std::string fixed = "0100 0016 00000000 00000000 11111111 11111111 0000";  // 2, padded
  const std::string variable = "0101 0013 00000000 02 6162 11111111 FF 0001 63";   // 2
  note(message("00000000", fixed + variable));
  note(message("00000009", fixed));
  EXPECT_EQ(Counts().gaps.Lost(), 5U);
  note(message("0000000B", "0300 0008 00000000"));  // of an unknown template: so many records
  note(message("00000020", fixed));
  EXPECT_EQ(Counts().gaps.Lost(), 5U);
  EXPECT_EQ(Counts().gaps.restarts, 0U);
  EXPECT_EQ(Counts().templates, 2U);
}

TEST_F(Exporters, LoseSFlowDatagramsAndSamples) {
  const auto send = [&](const std::string& number, const std::string& samples) {
    Datagram("00000005 00000001 0A000001 00000000 " + number + " 00000000 00000001" + samples);
  };
  const auto flow = [](const std::string& number) {
    return "00000001 0000000C" + number + "00000003 00000000";
  };
  const auto counters = [](const std::string& number) {
    return "00000002 0000000C" + number + "00000003 00000000";
  };
  send("00000001", flow("00000001") + counters("00000077"));
  send("00000002", flow("00000002") + flow("00000003") + counters("00000078"));
  send("00000006", flow("00000008") + "00000001 FFFFFFFF 00000009");
  EXPECT_EQ(Counts().gaps.Lost(), 3U);
  EXPECT_EQ(Counts().sample_gaps.Lost(), 4U);
}

TEST_F(Exporters, AreReapedWithoutLosingTheirPlace) {
  Post(kTemplate256);
  Datagram(kV9Header + kTemplate256);
  ExporterTable sum;
  sum.Merge(table_.Reap());
  EXPECT_TRUE(table_.Rows().empty());
  Datagram("0009 0005 00000000 00000000 00000003 00000000" + kData256, 1);
  EXPECT_EQ(Counts().gaps.Lost(), 2U);
  EXPECT_EQ(Counts().unknown_sets, 0U);
  sum.Merge(table_.Reap());
  EXPECT_EQ(sum.Rows().at(0).counts.datagrams, 2U);
  EXPECT_EQ(sum.Rows().at(0).counts.templates, 1U);
}

// What a flood makes up goes first: those who send records keep their rows and templates.
TEST(ManyExporters, LeaveTheTrueOnesAlone) {
  ExporterTable table;
  const Endpoint true_one{IpAddress::Ipv4(0x0A000001), 1};
  const Bytes empty = FromHex(kV9Header);
  const Bytes data = FromHex(kV9Header + kData256);
  const auto note_template = [&](std::uint32_t address) {
    Bytes message = TemplateMessage(kTemplate256);
    for (int i = 0; i < 4; ++i)
      message[12 + i] = static_cast<std::uint8_t>(address >> (24 - 8 * i));
    message[20] = 0;
    message[21] = 1;
    table.NoteTemplates(message);
  };
  note_template(0x0A000001);
  table.Note({true_one, 0, empty, 0, Refusal::kNone});
  table.Note({true_one, 0, data, 1, Refusal::kNone});
  EXPECT_TRUE(table.HasNewUser());
  const std::size_t many = Shares().exporters + Shares().templates + 10;
  for (std::uint32_t i = 1; i <= many; ++i) {
    note_template(0x14000000 + i);
    table.Note({{IpAddress::Ipv4(0x14000000 + i), 1}, 0, empty, 0, Refusal::kNone});
  }
  table.Note({true_one, 0, data, 1, Refusal::kNone});
  EXPECT_FALSE(table.HasNewUser());
  std::uint64_t datagrams = 0;
  for (const ExporterTable::Row& row : table.Rows()) {
    datagrams += row.counts.datagrams;
    if (row.key.endpoint != true_one) continue;
    EXPECT_EQ(row.counts.datagrams, 3U);
    EXPECT_EQ(row.counts.unknown_sets, 0U);
  }
  EXPECT_EQ(datagrams, many + 3);
  EXPECT_LE(table.Rows().size(), Shares().exporters + 1);
}

// Nor do harvests in which nothing of them was metered, and what is made up came first.
TEST(ManyExporters, LeaveARowToWhoeverSentRecordsBefore) {
  ExporterTable table;
  const Endpoint true_one{IpAddress::Ipv4(0x0A000001), 1};
  const Bytes data = FromHex(kV9Header + kData256);
  const auto flood = [&](std::uint64_t records) {
    for (std::uint32_t i = 0; i < Shares().exporters; ++i) {
      table.Note({{IpAddress::Ipv4(0x14000000 + i), 1}, 0, data, records, Refusal::kNone});
    }
  };
  ExporterTable sum;
  const auto reap = [&] { sum.Merge(table.Reap()); };
  table.Note({true_one, 0, data, 2, Refusal::kNone});
  reap();
  flood(1);
  table.NoteDropped(true_one, 0, data);
  reap();
  table.NoteDropped(true_one, 0, data);
  flood(0);
  flood(1);
  reap();
  for (const ExporterTable::Row& row : sum.Rows()) {
    EXPECT_EQ(row.counts.dropped, row.key.endpoint == true_one ? 2U : 0U);
  }
  EXPECT_LE(sum.Rows().size(), 2 * Shares().exporters);
}

// A flood from random ports costs bounded memory, and its datagrams still count.
TEST(ManyExporters, ShareARow) {
  ExporterTable table;
  const Bytes bytes = FromHex(kV9Header);
  const auto kMore = static_cast<std::uint32_t>(Shares().exporters) + 10;
  for (std::uint32_t i = 1; i <= kMore; ++i)
    table.Note({{IpAddress::Ipv4(i), 1}, 0, bytes, 1, Refusal::kNone});
  const auto rows = table.Rows();
  EXPECT_EQ(rows.size(), Shares().exporters + 1);
  EXPECT_EQ(rows[0].key, ExportSource{});
  EXPECT_EQ(rows[0].counts.datagrams, 10U);
}

TEST_F(Exporters, StandApartByVersionAndPort) {
  Datagram(kV9Header);
  Datagram("0005 0000 00000000 00000000 00000000 00000000 00000000");
  Datagram("00000005 00000001 0A000001 00000000");
  ExporterTable other;
  const Bytes bytes = FromHex(kV9Header);
  other.Note({kExporter, 0, bytes, 2, Refusal::kNone});
  other.Note({{kExporter.address, 50001}, 0, bytes, 0, Refusal::kFailed});
  table_.Merge(other);
  const auto rows = table_.Rows();
  ASSERT_EQ(rows.size(), 4U);
  EXPECT_EQ(rows[0].key.version.Text(), "NetFlow v5");
  EXPECT_EQ(rows[1].key.version.Text(), "NetFlow v9");
  EXPECT_EQ(rows[1].counts.datagrams, 2U);
  EXPECT_EQ(rows[2].key.version.Text(), "sFlow v5");
  EXPECT_EQ(rows[3].counts.Refused(), 1U);
}

std::vector<std::uint16_t> TemplateIds(const std::string& set) {
  std::vector<std::uint16_t> ids;
  ForEachTemplate(FromHex(set), [&](std::uint16_t id, const TemplateShape&) { ids.push_back(id); });
  return ids;
}

// A walk over a record takes no more steps than the record has bytes.
TEST(TemplateSets, KeepNoFieldsThatLeadNowhere) {
  Bytes set = FromHex("0002 0000 0100 1001 0052 FFFF");  // one field of variable length
  for (int i = 0; i < 4096; ++i) set = set + FromHex("0001 0000");
  std::vector<TemplateShape> shapes;
  const auto keep = [&](std::uint16_t, TemplateShape shape) { shapes.push_back(std::move(shape)); };
  ForEachTemplate(set, keep);
  for (std::size_t i = 15; i < set.size(); i += 4) set[i] = 1;  // and of one byte each
  ForEachTemplate(set, keep);
  ASSERT_EQ(shapes.size(), 2U);
  EXPECT_EQ(shapes[0].lengths.size(), 1U);
  EXPECT_TRUE(shapes[1].IsVast());
  EXPECT_EQ(CountRecords(Bytes(60000), shapes[1]), 0U);
}

TEST(TemplateSets, NameTheirTemplates) {
  using Ids = std::vector<std::uint16_t>;
  EXPECT_EQ(TemplateIds("0000 0018 0100 0001 0008 0004  0101 0001 0001 0004 0000 0000"),
            (Ids{256, 257}));  // padded
  EXPECT_EQ(TemplateIds("0002 0018 0100 0001 8008 0004 0000 0009  0101 0001 0001 0004"),
            (Ids{256, 257}));  // an enterprise number
  EXPECT_EQ(TemplateIds("0001 0012 0102 0004 0004 0001 0004 0022 0004"), (Ids{258}));
  EXPECT_EQ(TemplateIds("0003 000E 0103 0001 0001 0022 0004"), (Ids{259}));
  EXPECT_EQ(TemplateIds("0000 000A 0100 0002 0008"), (Ids{}));  // cut
  EXPECT_EQ(TemplateIds("0000 0008 0100 FFFF"), (Ids{}));
}

TEST(Sets, EndWhereTheirLengthsCannotBe) {
  const auto ids = [](const std::string& datagram) {
    std::string text;
    ForEachSet(FromHex(datagram), [&](const ExportSet& set) {
      text += std::to_string(set.id);
      text += set.is_broken ? "! " : set.is_beyond ? "+ " : " ";
    });
    return text;
  };
  EXPECT_EQ(ids(kV9Header + "0100 0004 0101 0000 0102 0004"), "256 257! ");
  EXPECT_EQ(ids(kV9Header + "0100 0004 0101 0008"), "256 257! ");
  EXPECT_EQ(ids("0009 0001" + kV9Header.substr(9) + "0100 0004 0101 0004"), "256 257+ ");
  EXPECT_EQ(ids("000A 0014 00000000 00000000 00000000 0100 0004 0101 0004"), "256 ");
  EXPECT_EQ(ids("000A"), "");
}

// What a datagram describes is metered or left out, whatever the meter says and the sets are like.
TEST_F(Exporters, BooksHaveARowForEveryRecord) {
  struct Case {
    const char* name;
    std::string sets;
    std::uint64_t marked;
    std::vector<std::pair<MeterWord, std::uint64_t>> words;
    std::string books;  // described, reverse, metered, then what was left out
  };
  const std::string two = "0100 0014 0A000001 00000064 0A000002 00000064";
  const Case cases[] = {
      {"Metered", two, 2, {}, "2 0 2"},
      {"Told",
       two,
       0,
       {{MeterWord::kCorrupt, 1}, {MeterWord::kZeroBytes, 1}},
       "2 0 0 zero_bytes=1 corrupt=1"},
      {"MarkedAndFiltered", two, 2, {{MeterWord::kFiltered, 2}}, "2 0 0 filtered=2"},
      {"BothDirections", two, 4, {{MeterWord::kReverse, 2}}, "2 2 4"},
      {"OneOfThemAndInBoth", two, 2, {{MeterWord::kReverse, 1}}, "2 1 2 unexplained=1"},
      {"NothingTold", two, 1, {}, "2 0 1 unexplained=1"},
      {"SetPastTheEnd", "0100 0040 0A000001 00000064", 0, {}, "1 0 0 broken_set=1"},
      {"StaticTemplate", "", 3, {}, "3 0 3"},
  };
  for (const Case& row : cases) {
    SCOPED_TRACE(row.name);
    table_ = {};
    Post(kTemplate256);
    Datagram(kV9Header + kTemplate256);
    MeterWords words{};
    for (const auto& [word, times] : row.words) words[static_cast<std::size_t>(word)] = times;
    const Bytes bytes = FromHex(kV9Header + row.sets);
    table_.Note({kExporter, 0, bytes, row.marked, Refusal::kNone, words});
    const RecordBooks books = Counts().books;
    std::string text = fmt::format("{} {} {}", books.described, books.reverse, books.metered);
    for (std::size_t i = 0; i < kLeftOuts; ++i) {
      if (books.left_out[i] == 0) continue;
      text += fmt::format(" {}={}", LeftOutId(static_cast<LeftOut>(i)), books.left_out[i]);
    }
    EXPECT_EQ(text, row.books);
    EXPECT_EQ(books.described + books.reverse, books.metered + books.LeftOutSum());
  }
  table_ = {};
  Post(kTemplate256);
  Datagram(kV9Header + kTemplate256);
  Datagram("0009 0000" + kV9Header.substr(9) + two);
  EXPECT_EQ(Counts().books.left_out[static_cast<std::size_t>(LeftOut::kBeyondCount)], 2U);
}

// A meter keeps them, though it posts none of such a set.
TEST_F(Exporters, KnowTemplatesInFrontOfOneThatIsCut) {
  Datagram(kV9Header + "0000 0018 0100 0002 0008 0004 0001 0004 0101 0002 0008 0004");
  Datagram(kV9Header + "0100 000C 0A000001 00000064");
  EXPECT_EQ(Counts().books.described, 1U);
}

TEST(Datagrams, AreCutShortWhenTheyPromiseMore) {
  EXPECT_FALSE(IsCutShort(FromHex("0005 0001") + Bytes(20 + 48)));
  EXPECT_TRUE(IsCutShort(FromHex("0005 0001") + Bytes(20 + 47)));
  EXPECT_TRUE(IsCutShort(FromHex("0001 0001") + Bytes(12 + 47)));
  EXPECT_TRUE(IsCutShort(FromHex("000A 0018") + Bytes(16)));
  EXPECT_FALSE(IsCutShort(FromHex("0009 FFFF") + Bytes(16)));
}

TEST(Shim, IsTakenOffWhenTheMeterHasTakenIt) {
  const Bytes datagram = Text("OMBR") + FromHex("C0000201") + Text("LNSM") + FromHex("0005");
  EXPECT_EQ(WithoutShim(datagram, kExporter.address).size(), 2U);
  EXPECT_EQ(WithoutShim(datagram, IpAddress::Ipv4(0xC0000202)).size(), 14U);
}

}  // namespace
}  // namespace flow::host::test
