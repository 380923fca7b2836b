// SPDX-License-Identifier: Apache-2.0
// Templates of the policy, and the elements that they may name.

#include "tests/netflow/meter_test.h"
#include "tests/support/policy_file.h"

namespace flow::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string FieldsOf(const TemplateStore& store, std::uint32_t id) {
  SetError why = SetError::kNone;
  const Template* const found = store.Find(ExportSource(UdpHeaders({}, 0)), id, &why);
  if (found == nullptr) return SetErrorText(why);
  std::string text;
  for (const nf9_field_t& field : found->Fields()) {
    text += std::to_string(field.type) + ":" + std::to_string(field.length) + " ";
  }
  return text;
}

TEST(StaticTemplates, Elements) {
  constexpr char kNone[] = "unknown router and no static template";
  constexpr char kIgnored[] = "Log 4 Static template without id or Fields, ignored\n";
  // clang-format off
  const struct {
    const char* name;
    const char* xml;
    const char* fields;
    const char* log = "";
  } cases[] = {
      {"Whole", "<Template id='300' name='n'><Fields>8,12,4,1,2</Fields></Template>",
       "8:4 12:4 4:1 1:4 2:4 "},
      {"Variable", "<Template id='300' name='n'><Fields>32861,56702</Fields></Template>",
       "32861:65535 56702:64 "},
      {"Unsupported", "<Template id='300' name='a b'><Fields>8,999,43</Fields></Template>", kNone,
       "Log 4 Unsupported attribute: 999 in static template 300, a b\n"},
      {"NoNumber", "<Template id='300' name='n'><Fields>8,x</Fields></Template>", kNone,
       "Log 4 Unsupported attribute: 0 in static template 300, n\n"},
      {"Blanks", "<Template id=' 300' name='n'><Fields>8, 12, +4z</Fields></Template>",
       "8:4 12:4 4:1 "},
      {"OnlyCommas", "<Template id='300' name='n'><Fields>,,</Fields></Template>", ""},
      {"NoName", "<Template id='300'><Fields>999</Fields></Template>", kNone,
       "Log 4 Unsupported attribute: 999 in static template 300, \n"},
      {"NoId", "<Template name='n'><Fields>8</Fields></Template>", kNone, kIgnored},
      {"NoFields", "<Template id='300' name='n'/>", kNone, kIgnored},
      {"NoText", "<Template id='300' name='n'><Fields/></Template>", kNone, kIgnored},
  };
  // clang-format on
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    RecordingHost host;
    TemplateStore store;
    store.ProcessStaticTemplate(XMLNode::parseString(row.xml, "Template"), host.Site());
    EXPECT_EQ(FieldsOf(store, 300), row.fields);
    EXPECT_EQ(host.TakeText(), row.log);
  }
}

class StaticTemplateUse : public MeterTest {
 protected:
  static constexpr char kTwice[] =
      "<StaticTemplates><Template id='300' name='one'><Fields>8,12,1</Fields></Template>"
      "<Template id='300' name='two'><Fields>12,8,1</Fields></Template></StaticTemplates>";
  const V9Packet data_ = V9(Data(Numbers({1, 2, 3}), 300));
};

// They are for exporters that send no templates at all: an options template is one.
TEST_F(StaticTemplateUse, ForUnknownExportersAlone) {
  Start("", kTwice);
  Send(data_);
  EXPECT_THAT(Said(), ElementsAre("0 0.0.0.1:0 > 0.0.0.2:0 if 0 > 0, 3 bytes 0 packets"));
  EXPECT_THAT(TemplatesOf(*meter_), IsEmpty());
  Send(V9(V9Options(256, {{1, 4}}, {})));
  Send(data_);
  EXPECT_THAT(Said(), IsEmpty());
  EXPECT_EQ(meter_->LastSetError(), SetError::kUnknownTemplate);
  Send(data_, {.port = 1});
  EXPECT_THAT(Said(), testing::SizeIs(1));
  Send(V9(Data(FlowRecord(), 301)), {.port = 1});
  EXPECT_EQ(meter_->LastSetError(), SetError::kUnknownExporter);
}

TEST_F(StaticTemplateUse, LoadReplacesThemAndFirstOfAnIdStays) {
  Start("<ReloadConfigCheckSeconds>60</ReloadConfigCheckSeconds>");
  SetModificationTime(host_.PolicyPath(), 1000000);
  Send(data_);
  EXPECT_THAT(Said(), IsEmpty());
  host_.Policy(kFlowsOnly, kTwice).Now(1060);
  Send(data_);
  EXPECT_THAT(Said(),
              testing::IsSupersetOf({"Log 5 Duplicate templ id : in static template 300, two",
                                     "0 0.0.0.1:0 > 0.0.0.2:0 if 0 > 0, 3 bytes 0 packets"}));
}

TEST(Elements, Names) {
  int names = 0;
  for (std::uint32_t id = 0; id < 65536; ++id) names += GetFieldCode(id) != std::string("Unknown");
  EXPECT_EQ(names, 128);
  const std::pair<std::uint32_t, const char*> cases[] = {
      {0, "Unknown"},
      {1, "IN_BYTES"},
      {50, "FLOW_SAMPLER_RANDOM_INTERVAL"},
      {51, " Vendor_Proprietary_51"},  // from here to 66 with a blank
      {58, " SRC_VLAN"},
      {66, " Vendor_Proprietary_66"},
      {67, "Vendor_Proprietary_67"},
      {90, "Unknown"},
      {97, "Unknown"},
      {226, "postNATDesitnationIPv4Address"},
      {323, "Unknown"},
      {15614, "Scope-Netflow_Cache"},
      {32769, "Rev Type 1 Bytes"},
      {56702, "paloAltoUserID"},
      {81145, "Unknown"},
  };
  for (const auto& [id, name] : cases) EXPECT_STREQ(GetFieldCode(id), name) << id;
}

TEST(Elements, DefaultLengths) {
  int lengths = 0;
  for (int id = -1; id < 65536; ++id) lengths += GetDefaultLengthForAttribute(id) != -1 ? 1 : 0;
  EXPECT_EQ(lengths, 86);
  const std::pair<int, int> cases[] = {
      {-1, -1},    {0, -1},     {1, 4},     {4, 1},         {7, 2},      {10, 4},     {16, 2},
      {27, 16},    {31, 3},     {32, 2},    {43, -1},       {44, -1},    {55, 1},     {57, 6},
      {63, 16},    {70, 3},     {79, 3},    {80, -1},       {95, -1},    {136, 1},    {148, 8},
      {150, -1},   {152, 8},    {210, 1},   {228, 2},       {231, -1},   {304, 2},    {305, 4},
      {15611, -1}, {32769, -1}, {32860, 2}, {32861, 65535}, {56701, 32}, {56702, 64},
  };
  for (const auto& [id, length] : cases) EXPECT_EQ(GetDefaultLengthForAttribute(id), length) << id;
}

}  // namespace
}  // namespace flow::test
