// SPDX-License-Identifier: Apache-2.0
// Damaged datagrams: any number in them may be wrong, and any byte missing. The host's blocks have
// exactly a datagram's size, so the sanitizers see a read one byte too far; the recording host ends
// the program when a key has another form than its group's.

#include <random>

#include "flowhandlers/identifiers.h"
#include "tests/netflow/meter_test.h"
#include "tests/support/samples.h"

namespace flow::test {
namespace {

// A meter with two exporters: one whose templates are damaged with the rest, and one that is well.
class HostileDatagram : public testing::Test {
 protected:
  HostileDatagram() {
    host_.WorkDirectory(std::nullopt).Policy(kPolicy);
    host_.Attach(meter_);
    host_.Recording(false);
    host_.Count(meter_, V9(Learn(kFlowFields)).Build(), kGood);
  }
  // Whatever has come before, an exporter that is well is metered.
  ~HostileDatagram() override {
    host_.Recording(true);
    host_.Count(meter_, V9(Data(FlowRecord())).Build(), kGood);
    EXPECT_THAT(host_.Take("TOTALBW"), testing::SizeIs(1));
  }

  void Send(const Bytes& datagram) {
    const Status status = host_.Count(meter_, datagram, kBad);
    ASSERT_TRUE(status == 0 || status == 1 || status == kStatusFailed) << status;
  }
  // SendCuts sends a datagram cut at every length, or at every step-th.
  void SendCuts(const Bytes& datagram, std::size_t step = 1) {
    for (std::size_t size = 0; size < datagram.size(); size += step) {
      Send(Bytes(datagram.begin(), datagram.begin() + static_cast<std::ptrdiff_t>(size)));
    }
    Send(datagram);
  }
  // SendFlips sends it with each of these bits flipped, and each of the bytes.
  void SendFlips(const Bytes& datagram, std::size_t from, std::size_t to) {
    Bytes damaged = datagram;
    for (std::size_t at = from; at < std::min(to, datagram.size()); ++at) {
      for (const int change : {1, 2, 4, 8, 16, 32, 64, 128, 255}) {
        damaged[at] = static_cast<std::uint8_t>(datagram[at] ^ change);
        Send(damaged);
      }
      damaged[at] = datagram[at];
      if (at % 8 == 0) Send(datagram);  // learns again what the damage has changed
    }
  }

  static constexpr char kPolicy[] =
      "<AllowVariableLengthStrings>true</AllowVariableLengthStrings>"
      "<LogTemplateMessages>false</LogTemplateMessages>"
      "<StaticTemplates><Template id='1' name='n'><Fields>8,12,1,32861</Fields></Template>"
      "</StaticTemplates>";
  static inline const Exporter kGood = {.address = "192.0.2.1"};
  static inline const Exporter kBad = {.address = "192.0.2.2"};
  RecordingHost host_;
  ComponentOf<CPINetflowMeter> meter_;
};

// Datagrams that together hold every kind of set, field and record.
std::vector<Bytes> Seeds() {
  Fields every_field;
  for (const Element& element : Elements()) {
    if (element.place.kind == FieldKind::kSkipped) continue;
    const int length = element.default_length;
    every_field.push_back({static_cast<std::uint16_t>(element.id),
                           static_cast<std::uint16_t>(length < 0 ? 8 : length)});
  }
  Wire record;
  for (const Field& field : every_field) {
    if (field.length == kVariableLength) {
      record.Variable("text");
    } else {
      record.Number(field.length, field.type == 346 ? 25461 : 0x3132333435363738);
    }
  }
  const Fields variable = {{83, kVariableLength}, {8, 4}, {12, 4}, {95, kVariableLength}, {1, 4}};
  const Wire strings = Wire().Variable("name").U32(1).U32(2).Variable("abcd").U32(3);
  return {
      V1Packet().Record().Record().Build(),
      V5Packet().Record().Record().Build(),
      V9(Learn(every_field), Data(record)).Build(),
      V9(Learn(kFlowFields, 257).Template(258, variable), V9Options(259, {{1, 4}}, {{34, 4}}))
          .Add(Data(FlowRecord(), 257).Record(FlowRecord()).Pad(3))
          .Add(Data(strings, 258).Record(strings))
          .Add(Data(Numbers({1, 100}), 259))
          .Build(),
      IpfixMessage()
          .Add(Set(2).Template(260, {{1, 8, 29305}, {8, 4}, {12, 4}, {2, 8, 29305}, {1, 4}}))
          .Add(IpfixOptions(261, {{149, 4}}, {{305, 4}, {7, 2, 9}}))
          .Add(Data(Numbers({0, 500, 1, 2, 0, 5, 1000}), 260))
          .Add(Data(Numbers({1, 2, 3, 0}).Raw(Wire().Variable("x").Get()), 1))
          .Build(),
  };
}

// The first datagrams of each capture of exporters that we ran.
std::vector<Bytes> Samples(int most) {
  std::vector<Bytes> samples;
  std::string capture;
  int taken = 0;
  for (const RecordedDatagram& recorded : RecordedDatagrams()) {
    const std::string from = recorded.name.substr(0, recorded.name.find(' '));
    taken = from == capture ? taken + 1 : 1;
    capture = from;
    if (!from.starts_with("sflow") && taken <= most) samples.push_back(recorded.bytes);
  }
  return samples;
}

// Where the sets of a datagram begin, by their own lengths.
std::vector<std::size_t> SetsOf(const Bytes& datagram) {
  std::vector<std::size_t> sets;
  const int version = datagram[1];
  for (std::size_t at = version == 9    ? 20
                        : version == 10 ? 16
                                        : datagram.size();
       at + 4 <= datagram.size();) {
    sets.push_back(at);
    const std::size_t length = LoadBe16(&datagram[at + 2]);
    at += length < 4 ? datagram.size() : length;
  }
  return sets;
}

TEST_F(HostileDatagram, BuiltOnes) {
  for (const Bytes& seed : Seeds()) {
    SendCuts(seed);
    SendFlips(seed, 0, seed.size());
  }
}

TEST_F(HostileDatagram, SamplesCut) {
  for (const Bytes& sample : Samples(2)) SendCuts(sample);
}

// The header of each, ids and lengths of its sets and their first template's id and count, and the
// first field specifiers.
TEST_F(HostileDatagram, SamplesFlipped) {
  for (const Bytes& sample : Samples(1)) {
    SendFlips(sample, 0, 48);
    for (const std::size_t at : SetsOf(sample)) SendFlips(sample, at, at + 12);
  }
}

TEST_F(HostileDatagram, ChannelMessages) {
  const auto deliver = [&](const Bytes& message) {
    EXPECT_EQ(host_.Deliver(meter_, CHANNELID_NETFLOW_TEMPLATES, message), kStatusOk);
  };
  for (const Set& set :
       {Learn({{8, 4}}).Template(257, {{1, 4}}), V9Options(256, {{1, 4}}, {{34, 4}}),
        Set(2).Template(256, {{1, 8, 29305}}), IpfixOptions(256, {}, {{7, 2, 9}})}) {
    Bytes message = UdpHeaders(kBad, 0);
    message.resize(24);
    message = Wire().Raw(message).Raw(set.Build()).Get();
    for (std::size_t size = 0; size <= message.size(); ++size) {
      deliver(Bytes(message.begin(), message.begin() + static_cast<std::ptrdiff_t>(size)));
    }
    for (std::size_t bit = 0; bit < 8 * message.size(); ++bit) {
      Bytes damaged = message;
      damaged[bit / 8] ^= static_cast<std::uint8_t>(1 << bit % 8);
      deliver(damaged);
    }
  }
}

// What anybody can send without end writes no line into the host's log, and reaches its counters at
// most with its own size.
TEST_F(HostileDatagram, FloodsAreQuiet) {
  host_.Forget();
  host_.Recording(true);
  const Bytes zeros(1400);
  const auto versioned = [&](std::uint16_t version) {
    Bytes datagram = Wire().U16(version).Raw(zeros).Get();
    datagram[2] = 0x05;  // IPFIX: a length that fits; the others: a count
    return datagram;
  };
  V9Packet unknown_templates;
  for (std::uint16_t id = 300; id < 600; ++id) unknown_templates.Add(Set(id).Pad(1));
  const struct {
    const char* name;
    Bytes datagram;
    bool counts = false;
  } rows[] = {
      {"nothing", {}},
      {"one byte", {9}},
      {"23 bytes", Bytes(23, 9)},
      {"version 0", zeros},
      {"version 7", versioned(7)},
      {"v1, more records than bytes", versioned(1)},
      {"v5, more records than bytes", versioned(5)},
      {"v9 sets of length 0", versioned(9), true},
      {"IPFIX sets of length 0", versioned(10), true},
      {"unknown template", V9(Data(FlowRecord(), 9999)).Build(), true},
      {"unknown templates", unknown_templates.WithCount(65535).Build(), true},
      {"options sets of no length", V9(Set(1), Set(1)).Add(Set(1)).WithCount(9).Build(), true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    for (std::uint16_t port = 1; port <= 50; ++port) {
      host_.Count(meter_, row.datagram, {.address = "192.0.2.3", .port = port});
    }
    const Texts lines = host_.Take();
    EXPECT_EQ(lines.size(), row.counts ? 50U : 0U);
    for (const std::string& line : lines) EXPECT_THAT(line, testing::HasSubstr("FLOWGEN"));
  }
}

// A known template is learnt anew while its data arrives.
TEST_F(HostileDatagram, TemplatesThatChange) {
  std::mt19937 random(7);
  for (int i = 0; i < 2000; ++i) {
    Fields fields;
    for (std::size_t n = random() % 20; n > 0; --n) {
      fields.push_back({static_cast<std::uint16_t>(random() % 100),
                        static_cast<std::uint16_t>(random() % 9 == 0 ? 65535 : random() % 20)});
    }
    Wire record;
    for (std::size_t n = random() % 100; n > 0; --n) record.Number(1, random());
    Send(V9(Data(record), Learn(fields)).Add(Data(record)).WithCount(3).Build());
  }
}

}  // namespace
}  // namespace flow::test
