// SPDX-License-Identifier: Apache-2.0
// Filters: which flows pass, and what a wrong one is told.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <memory>
#include <string>

#include "host/ask/filter.h"
#include "host/ask/filter_sql.h"
#include "host/ask/flow_scan.h"

namespace flow::host::test {
namespace {

// Flows by letters, so that an expectation is a word.
constexpr char kFlows[] = R"(
CREATE TABLE exporters (id INTEGER PRIMARY KEY, address BLOB);
CREATE TABLE texts (id INTEGER PRIMARY KEY, text TEXT);
CREATE TABLE flows (name, first, last, src, dst, sport, dport, proto, bytes, packets, bytes_rev,
  packets_rev, exporter, in_if, out_if, src_as, dst_as, next_hop, bgp_next_hop, vrf, app, user, tag,
  src_mac, dst_mac);
INSERT INTO exporters VALUES (1, x'C0000201'), (2, x'20010DB8000000000000000000000001');
INSERT INTO texts VALUES (1, 'red'), (2, 'a b');
INSERT INTO flows (name, first, last, src, dst, sport, dport, proto, bytes, packets, bytes_rev,
  packets_rev, exporter, in_if, out_if, src_as, dst_as, next_hop, vrf, src_mac) VALUES
  ('a', 0, 60000, x'0A000005', x'C6120001', 51000, 443, 6, 1000000, 1000, 1, 1, 1, 3, 10, 64500,
   64501, x'0A0000FE', 1, x'001B210A0B0C'),
  ('b', 0, 60001, x'C6120001', x'0A000005', 443, 51000, 6, 999, 9, 0, 0, 1, 10, 3, 64501, 64500,
   NULL, 2, NULL),
  ('c', 100, 100, x'0A000006', x'0A000005', 53, 53, 17, 100, 1, 0, 0, 2, 1, 1, NULL, NULL, NULL,
   NULL, NULL),
  ('d', 0, 1000, x'20010DB8000000000000000000000005', x'0A0000000000000000000000000000FF', 0, 0, 58,
   64, 2, 64, 2, 2, 2, 3, 4200000000, NULL, NULL, NULL, NULL);
)";

struct Finalize {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
  void operator()(sqlite3* database) const { sqlite3_close(database); }
};

void Bind(sqlite3_stmt* statement, const FilterSql& sql) {
  int place = 0;
  for (const auto& value : sql.values) {
    ++place;
    if (const auto* const number = std::get_if<std::int64_t>(&value)) {
      sqlite3_bind_int64(statement, place, *number);
    } else if (const auto* const text = std::get_if<std::string>(&value)) {
      sqlite3_bind_text64(statement, place, text->data(), text->size(), SQLITE_STATIC, SQLITE_UTF8);
    } else {
      const auto& blob = std::get<SqlBlob>(value);
      sqlite3_bind_blob64(statement, place, blob.data(), blob.size(), SQLITE_STATIC);
    }
  }
}

std::string Passing(const std::string& filter) {
  sqlite3* opened = nullptr;
  sqlite3_open(":memory:", &opened);
  const std::unique_ptr<sqlite3, Finalize> database(opened);
  EXPECT_EQ(sqlite3_exec(opened, kFlows, nullptr, nullptr, nullptr), SQLITE_OK);
  const FilterSql sql = ToSql(ParseFilter(filter));
  sqlite3_stmt* prepared = nullptr;
  const std::string text =
      "SELECT name FROM flows WHERE " + ColumnsFor(sql.text, FlowView::kBoth) + " ORDER BY name";
  EXPECT_EQ(sqlite3_prepare_v2(opened, text.c_str(), -1, &prepared, nullptr), SQLITE_OK) << text;
  const std::unique_ptr<sqlite3_stmt, Finalize> statement(prepared);
  EXPECT_EQ(static_cast<std::size_t>(sqlite3_bind_parameter_count(prepared)), sql.values.size());
  Bind(prepared, sql);
  std::string names;
  while (sqlite3_step(prepared) == SQLITE_ROW) {
    names += reinterpret_cast<const char*>(sqlite3_column_text(prepared, 0));
  }
  return names;
}

TEST(Filter, LetsPass) {
  constexpr std::pair<const char*, const char*> kCases[] = {
      {"", "abcd"},
      {" \t", "abcd"},
      // Ends.
      {"host 10.0.0.5", "abc"},
      {"10.0.0.5", "abc"},
      {"src 10.0.0.5", "a"},
      {"src host 10.0.0.5", "a"},
      {"dst 10.0.0.5", "bc"},
      {"src or dst net 10.0.0.0/8", "abc"},
      {"src and dst net 10.0.0.0/8", "c"},
      {"src net 10.0.0.0/8 and not dst as 64501", "c"},
      {"net 10.0.0.0/24", "abc"},  // not d, whose blob begins like it
      {"net 0.0.0.0/0", "abc"},
      {"net 2001:db8::/32", "d"},
      {"net ::/0", "d"},
      {"host != 198.18.0.1", "cd"},
      {"not host 198.18.0.1", "cd"},
      {"host 198.18.0.1,2001:db8::5", "abd"},
      // Numbers: either end, lists, ranges, order.
      {"port 443", "ab"},
      {"port https,domain", "abc"},
      {"dst port 0-442", "cd"},
      {"dst port > 442", "ab"},
      {"src port >= 443", "ab"},
      {"port != 443", "cd"},
      {"PORT == 443 AND TCP", "ab"},
      // What is not known is no value, in either direction.
      {"as 64500", "ab"},
      {"not as 64500", "cd"},
      {"src as != 64500", "bcd"},
      {"as AS4200000000", "d"},
      {"nexthop 10.0.0.254", "a"},
      {"not nexthop 10.0.0.0/8", "bcd"},
      {"vrf red", "a"},
      {"vrf \"a b\"", "b"},
      {"vrf 'a b',red", "ab"},
      {"vrf \"x' or 1 --\"", ""},
      {"mac 00:1B:21:0a:0b:0c", "a"},
      {"dst mac 00-1b-21-0a-0b-0c", ""},
      // Exporters and interfaces.
      {"exporter 192.0.2.1", "ab"},
      {"exporter 192.0.2.0/24 and interface 3 in", "a"},
      {"in interface 3", "a"},
      {"interface 3 out", "bd"},
      {"interface 3", "abd"},
      {"exporter 2001:db8::1", "cd"},
      {"exporter != 192.0.2.1", "cd"},
      // Protocols and families.
      {"proto tcp", "ab"},
      {"proto 17", "c"},
      {"icmp6 or udp", "cd"},
      {"tcp src port 443", "b"},
      {"not tcp port 51000", "cd"},
      {"ipv6", "d"},
      {"ipv4 udp", "c"},
      // Amounts: both directions, units.
      {"bytes > 1M", "a"},
      {"bytes = 128", "d"},
      {"bytes 900-1k", "b"},
      {"packets <= 1", "c"},
      {"packets < 0.01k", "bcd"},
      {"duration > 60", "b"},
      {"duration >= 1m", "ab"},
      {"duration = 0", "c"},
      {"duration <= 1000ms", "cd"},
      {"bps > 133k", "ac"},  // c: 100 bytes within a millisecond
      {"pps = 4", "d"},
      // What binds first.
      {"udp or tcp and bytes > 1M", "ac"},
      {"(udp or tcp) and bytes > 1M", "a"},
      {"not udp and not tcp", "d"},
      {"! ( udp || tcp ) && ipv6", "d"},
      {"not not udp", "c"},
  };
  for (const auto& [filter, names] : kCases) EXPECT_EQ(Passing(filter), names) << filter;
}

struct Wrong {
  const char* filter;
  std::size_t offset;
  std::size_t length;
  const char* what;
  const char* expected;
};

TEST(Filter, PointsAtThePlace) {
  constexpr Wrong kCases[] = {
      {"host 10.0.0.5 nad port 443", 14, 3, "no operator 'nad' here", "and, or, or the end"},
      {"host", 4, 1, "'host' needs a value", "an address or network"},
      {"host 10.0.0.256", 5, 10, "'10.0.0.256' is no value of host", "an address or network"},
      {"net 10.0.0/8", 4, 8, "is no value of net", "an address or network"},
      {"hots 10.0.0.5", 0, 4, "there is no 'hots' to ask for", "host, net, port"},
      {"src", 3, 0, "ends too early", "host, net, port"},
      {"tcp and", 7, 0, "ends too early", "a condition"},
      {"not", 3, 0, "ends too early", "a condition"},
      {"and tcp", 0, 3, "no condition 'and' here", "a condition"},
      {"(tcp or udp", 11, 0, "ends too early", "and, or or )"},
      {"tcp)", 3, 0, "no ')' can stand here", "and, or, or the end"},
      {"port 80,", 8, 0, "ends too early", "a value"},
      {"port 65536", 5, 5, "is no value of port", "a port"},
      {"port 20-10", 5, 5, "is no value of port", "a port, a range"},
      {"port > 10-20", 7, 5, "'>' takes one value", "a port"},
      {"bytes > 1X", 8, 2, "is no value of bytes", "a number"},
      {"bytes > 1e30", 8, 4, "is no value of bytes", "a number"},
      {"host > 10.0.0.5", 5, 1, "host has no order", "= or !="},
      {"src bytes > 3", 0, 3, "bytes has no src and dst", "bytes alone"},
      {"port 80 in", 8, 2, "only interfaces are in", "src or dst"},
      {"src interface 3", 0, 3, "an interface has no src and dst", "in or out"},
      {"in interface 3 out", 15, 3, "an end is named twice", "and, or"},
      {"vrf \"red", 4, 4, "no operator '\"red' here", ""},
  };
  for (const Wrong& wrong : kCases) {
    SCOPED_TRACE(wrong.filter);
    try {
      ParseFilter(wrong.filter);
      ADD_FAILURE() << "it was taken";
    } catch (const FilterError& error) {
      EXPECT_EQ(error.place().offset, wrong.offset);
      EXPECT_EQ(error.place().length, wrong.length);
      EXPECT_THAT(error.what(), testing::HasSubstr(wrong.what));
      EXPECT_THAT(error.what(), testing::HasSubstr(std::string("expected: ") + wrong.expected));
    }
  }
  EXPECT_THROW(ParseFilter(std::string(10'000, ' ')), FilterError);
  EXPECT_THROW(ParseFilter(std::string(5'000, '(')), FilterError);
  std::string negations;
  for (int i = 0; i < 2'000; ++i) negations += "not ";
  EXPECT_THROW(ParseFilter(negations + "tcp"), FilterError);
}

std::string Repeated(std::size_t times, std::string_view text) {
  std::string made;
  for (std::size_t i = 0; i < times; ++i) made += text;
  return made;
}

// SQLite takes trees of 1,000 levels, and parses 100 words deep.
TEST(Filter, IsNeverTooLargeForTheDatabase) {
  EXPECT_EQ(Passing("port " + Repeated(2'000, "1,") + "443"), "ab");
  EXPECT_EQ(Passing("net " + Repeated(600, "192.0.2.0/25,") + "2001:db8::/32"), "d");
  EXPECT_EQ(Passing(Repeated(1'000, "udp or ") + "port 443"), Passing("udp or port 443"));
  EXPECT_EQ(Passing(Repeated(98, "tcp ") + "port 443"), "ab");
  EXPECT_EQ(Passing(Repeated(90, "(") + "port 443" + Repeated(90, ")")), "ab");
  const std::string longest = Repeated(64, "gre or ");
  const std::string levels = Repeated(5, "not (" + longest);
  EXPECT_EQ(Passing(levels + "exporter 10.0.0.0/8" + Repeated(5, ")")).size(), 4U);
  EXPECT_THROW(ParseFilter("tcp and (" + levels + "tcp" + Repeated(6, ")")), FilterError);
}

TEST(Filter, DrawsTheMark) {
  try {
    ParseFilter("host 10.0.0.5 nad port 443");
  } catch (const FilterError& error) {
    EXPECT_STREQ(error.what(),
                 "no operator 'nad' here\n"
                 "  host 10.0.0.5 nad port 443\n"
                 "                ^^^ expected: and, or, or the end");
  }
}

}  // namespace
}  // namespace flow::host::test
