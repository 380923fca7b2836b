// SPDX-License-Identifier: Apache-2.0
#include "fuzz/netflow_grammar.h"

#include <iterator>

#include "tests/support/datagram_builders.h"

namespace flow::fuzz {
namespace {

using test::Bytes;
using test::Field;
using test::Fields;
using test::Wire;

// Elements that are decoded, with their usual lengths; 0 length: a text.
constexpr Field kKnownFields[] = {
    {1, 4},      {1, 8},      {2, 4},         {4, 1},      {6, 1},      {7, 2},   {8, 4},
    {9, 1},      {10, 4},     {11, 2},        {12, 4},     {13, 1},     {14, 4},  {15, 4},
    {16, 4},     {17, 2},     {18, 4},        {21, 4},     {22, 4},     {23, 4},  {24, 4},
    {27, 16},    {28, 16},    {34, 4},        {56, 6},     {57, 6},     {58, 2},  {59, 2},
    {60, 1},     {61, 1},     {82, 16},       {83, 32},    {94, 24},    {95, 4},  {95, 8},
    {96, 16},    {136, 1},    {150, 4},       {151, 4},    {152, 8},    {153, 8}, {225, 4},
    {226, 4},    {231, 4},    {232, 4},       {234, 4},    {305, 4},    {323, 8}, {346, 4},
    {56701, 32}, {56702, 64}, {32861, 65535}, {82, 65535}, {96, 65535}, {29, 1},  {30, 1},
    {85, 8},     {86, 4},     {83, 65535}};
// What the firewall's texts come with, and the number that makes them count.
constexpr Field kVendorFields[] = {{346, 4}, {56701, 32}, {56702, 64}};
constexpr std::uint32_t kVendorNumber = 25461;

std::uint16_t TemplateId(Random& random) {
  return static_cast<std::uint16_t>(256 + random.Below(4));
}

Fields MakeFields(Random& random, bool ipfix) {
  Fields fields = {{8, 4}, {12, 4}, {1, 4}};
  if (random.OneIn(4)) fields = {{27, 16}, {28, 16}, {1, 8}};
  if (random.OneIn(8)) fields.clear();
  if (random.OneIn(8)) {
    fields.insert(fields.end(), std::begin(kVendorFields), std::end(kVendorFields));
  }
  for (std::uint32_t left = random.Below(10); left > 0; --left) {
    Field field = kKnownFields[random.Below(std::size(kKnownFields))];
    if (random.OneIn(10)) field.type = static_cast<std::uint16_t>(random());
    if (random.OneIn(10)) field.length = static_cast<std::uint16_t>(random.Below(20));
    if (ipfix && random.OneIn(6)) field.enterprise = random.OneIn(2) ? 29305 : random();
    fields.push_back(field);
  }
  return fields;
}

Wire MakeRecord(Random& random, const Fields& fields) {
  Wire record;
  for (const Field& field : fields) {
    std::size_t length = field.length;
    if (field.length == test::kVariableLength) {
      length = random.Below(40);
      record.U8(static_cast<std::uint8_t>(length));
    }
    if (field.type == kVendorFields[0].type && length == 4 && !random.OneIn(4)) {
      record.U32(kVendorNumber);
      continue;
    }
    // Texts have to be printable, or else end early.
    const bool is_text = random.OneIn(3);
    for (; length > 0; --length) {
      const std::uint32_t byte = is_text ? ' ' + random.Below(95) : random();
      record.U8(static_cast<std::uint8_t>(random.OneIn(is_text ? 20 : 3) ? 0 : byte));
    }
  }
  return record;
}

test::Set MakeTemplates(Random& random, bool ipfix, std::uint16_t id, const Fields& fields) {
  if (random.OneIn(4)) {
    const Fields scopes = {{static_cast<std::uint16_t>(1 + random.Below(5)), 4}};
    return ipfix ? test::IpfixOptions(id, scopes, fields) : test::V9Options(id, scopes, fields);
  }
  test::Set templates = ipfix ? test::IpfixTemplates() : test::V9Templates();
  templates.Template(id, fields);
  if (random.OneIn(3)) templates.Template(TemplateId(random), MakeFields(random, ipfix));
  return templates;
}

test::Set MakeData(Random& random, std::uint16_t id, const Fields& fields) {
  test::Set data = test::DataSet(id);
  for (std::uint32_t left = 1 + random.Below(4); left > 0; --left) {
    data.Record(MakeRecord(random, fields));
  }
  if (random.OneIn(2)) data.PadTo4();
  return data;
}

Bytes MakeFixed(Random& random) {
  test::V1Packet v1;
  test::V5Packet v5;
  test::FixedPacket& packet = random.OneIn(3) ? static_cast<test::FixedPacket&>(v1) : v5;
  packet.Sampling(static_cast<std::uint16_t>(random()));
  for (std::uint32_t left = random.Below(4); left > 0; --left) {
    packet.Record({.src = random(),
                   .dst = random(),
                   .packets = random(),
                   .bytes = random(),
                   .src_port = static_cast<std::uint16_t>(random()),
                   .dst_port = static_cast<std::uint16_t>(random.OneIn(2) ? 443 : random()),
                   .tcp_flags = static_cast<std::uint8_t>(random()),
                   .protocol = static_cast<std::uint8_t>(random.OneIn(2) ? 6 : random()),
                   .src_mask = static_cast<std::uint8_t>(random.Below(40))});
  }
  return packet.Build();
}

Bytes MakePlain(Random& random) {
  if (random.OneIn(6)) return MakeFixed(random);
  const bool ipfix = random.OneIn(2);
  const std::uint16_t id = TemplateId(random);
  const Fields fields = MakeFields(random, ipfix);
  const test::Set templates = MakeTemplates(random, ipfix, id, fields);
  const test::Set data = MakeData(random, id, fields);
  const bool with_templates = !random.OneIn(4);
  if (ipfix) {
    test::IpfixMessage message;
    if (with_templates) message.Add(templates);
    return message.Add(data).Build();
  }
  test::V9Packet packet;
  if (with_templates) packet.Add(templates);
  return packet.Add(data).Build();
}

}  // namespace

Bytes MakeTemplateSet(Random& random) {
  const bool ipfix = random.OneIn(2);
  return MakeTemplates(random, ipfix, TemplateId(random), MakeFields(random, ipfix)).Build();
}

Bytes MakeNetflow(Random& random) {
  const Bytes datagram = MakePlain(random);
  return random.OneIn(12) ? test::Shimmed(0xC0000200U + random.Below(4), datagram) : datagram;
}

}  // namespace flow::fuzz
