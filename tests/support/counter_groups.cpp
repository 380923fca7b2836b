// SPDX-License-Identifier: Apache-2.0
#include "tests/support/counter_groups.h"

#include <algorithm>
#include <array>

namespace flow::test {
namespace {

constexpr unsigned int Meters(auto... meters) { return ((1u << meters) | ... | 0u); }

constexpr std::string_view kIPv4 = "XX.XX.XX.XX";

// IPv4 session, the shorter one of a merged sFlow session, IPv6 session, the first and the last one
// with an exporter of IPv6; a flow of neither IP version is kept under the empty key.
constexpr std::string_view kSessions =
    "XXC:XX.XX.XX.XX:p-XXXX_XX.XX.XX.XX:p-XXXX_XX.XX.XX.XX_XXXXXXXX_XXXXXXXX"
    " XXC:XX.XX.XX.XX:p-XXXX_XX.XX.XX.XX:p-XXXX_XX.XX.XX.XX_XXXX_XXXX"
    " XXD:XXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXX:p-XXXX_XXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXX:p-XXXX_"
    "XX.XX.XX.XX_XXXXXXXX_XXXXXXXX"
    " XXC:XX.XX.XX.XX:p-XXXX_XX.XX.XX.XX:p-XXXX_XXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXX_XXXXXXXX_XXXXXXXX"
    " XXD:XXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXX:p-XXXX_XXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXX:p-XXXX_"
    "XXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXX_XXXXXXXX_XXXXXXXX ";

// An exporter; an sFlow agent may be one of IPv6.
constexpr std::string_view kExporter = "XX.XX.XX.XX XXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXX";
constexpr std::string_view kExporterInterface =
    "XX.XX.XX.XX_XXXXXXXX XXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXX_XXXXXXXX";

constexpr CounterGroup kGroups[] = {
    {MakeGuid("4CD742B1-C1CA-4708-BE78-0FCA2EB01A86"), "COUNTERID_HOSTS", kIPv4,
     Meters(0, 1, 2, 3, 6, 7, 10)},
    {MakeGuid("9807E97A-6CD2-442F-BB18-8C104C8EB204"), "COUNTERID_HOSTS6",
     "XXXXXXXXXXXXXXXXXXXXXXXXXXXXXXXX", Meters(0, 1, 2)},
    {MakeGuid("99A78737-4B41-4387-8F31-8077DB917336"), "COUNTERID_FLOWS", kSessions,
     Meters(0, 1, 2, 3)},
    {MakeGuid("2314BB8E-2BCC-4B86-8AA2-677E5554C0FE"), "COUNTERID_FLOWGEN", kExporter,
     Meters(0, 1, 2)},
    {MakeGuid("C0B04CA7-95FA-44EF-8475-3835F3314761"), "COUNTERID_FLOWINTF", kExporterInterface,
     Meters(0, 1, 2, 3)},
    {MakeGuid("393B5EBC-AB41-4387-8F31-8077DB917336"), "COUNTERID_AGGREGATES",
     "TOTALBW DIR_WITHINHOME DIR_INTOHOME DIR_OUTOFHOME DIR_TRANSIT", Meters(0, 1)},
    {MakeGuid("E89BCD56-30AD-40F5-B1C8-8B7683F440BD"), "COUNTERID_IPPROTOCOL", "XX", Meters(0)},
    {MakeGuid("9F5AD3A9-C74D-46D8-A8A8-DCDD773730BA"), "COUNTERID_ETHERTYPE", "86DD 0800",
     Meters(0)},
    {MakeGuid("C51B48D4-7876-479E-B0D9-BD9EFF03CE2E"), "COUNTERID_APPS",
     "p-XXXX icmp gre ipsec-esp icmpv6", Meters(0, 2, 3, 4, 5, 6)},
    {MakeGuid("322AFE57-BA50-47B1-BE5C-EBC05BCC186B"), "COUNTERID_NBAR", "", Meters(0, 2, 3, 5, 6),
     127},
    {MakeGuid("429B65AD-CDA4-452E-A852-24D8A3D0FBB3"), "COUNTERID_SUBNETS",
     "XX.XX.XX.XX/XX external", Meters(0, 1, 2, 3)},
    {MakeGuid("120A3124-E2BB-47BD-6C64-71BBB861C428"), "COUNTERID_ASN", "# -#",
     Meters(0, 1, 2, 3, 4)},
    {MakeGuid("1D86CAB7-B4C4-433E-BCB9-C779A4244D70"), "COUNTERID_LINKAS",
     "#\\XX.XX.XX.XX_XXXXXXXX -#\\XX.XX.XX.XX_XXXXXXXX", Meters(0, 1)},
    {MakeGuid("79693CA3-ED3C-43B3-E12A-A3F64B125E4F"), "COUNTERID_IPNEXTHOP", kIPv4, Meters(0)},
    {MakeGuid("FC61EC07-BED0-4734-C64C-F5932FD8B943"), "COUNTERID_BGPNEXTHOP", kIPv4, Meters(0)},
    {MakeGuid("7FAB8F84-C580-424B-2BA4-B2546D2DB15A"), "COUNTERID_VRF", "VRF:# VRF:-#", Meters(0)},
    {MakeGuid("4B09BD22-3B99-40FC-8215-94A430EA0A35"), "COUNTERID_MAC", "XX:XX:XX:XX:XX:XX",
     Meters(0, 1)},
    {MakeGuid("86A8880D-F4B2-4E49-A4FA-718880CAA976"), "COUNTERID_APPID", "",
     Meters(0, 1, 2, 3, 4, 5), 63},
    {MakeGuid("9021F5D3-FEFB-401B-99EC-EF2ACD088578"), "COUNTERID_USERID", "",
     Meters(0, 1, 2, 3, 4, 5), 31},
    {MakeGuid("2BE2A3B6-613D-4216-0737-3684E824EA33"), "COUNTERID_PREFIX4", "#.#.#.#/#",
     Meters(0, 1, 2, 3, 4, 5)},
    {MakeGuid("467AE21F-F2B7-4509-EA69-514CF2352D36"), "COUNTERID_PREFIX6", "",
     Meters(0, 1, 2, 3, 4, 5), 50},
    {MakeGuid("0EC72E9E-3AD2-43FD-8173-74693EEA08D0"), "COUNTERID_VLAN",
     "XXXX XXXXX XXXXXX XXXXXXX XXXXXXXX", Meters(0, 1, 2)},
    {MakeGuid("5D0C8B1E-3C52-4F0B-9E37-6A1D4C9F27B8"), "COUNTERID_LEFTOUT", kExporter,
     Meters(0, 1, 2, 3, 4, 5, 6, 7, 8, 9)},
    // The blank of " ->" would end a form, so a pair is any text here.
    {MakeGuid("79F60A94-44BD-4C55-891A-77823D59161B"), "COUNTERID_MACPAIR", "", Meters(0), 37},
};

bool IsHexDigit(char c) { return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F'); }

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

bool Matches(std::string_view form, std::string_view key) {
  std::size_t at = 0;
  for (const char f : form) {
    if (at == key.size()) return false;
    if (f != '#') {
      if (f == 'X' ? !IsHexDigit(key[at]) : f != key[at]) return false;
      ++at;
      continue;
    }
    if (!IsDigit(key[at])) return false;
    while (at < key.size() && IsDigit(key[at])) ++at;
  }
  return at == key.size();
}

}  // namespace

std::span<const CounterGroup> CounterGroups() { return kGroups; }

const CounterGroup* FindCounterGroup(const GUID& guid) {
  const auto* const found = std::ranges::find(kGroups, guid, &CounterGroup::guid);
  return found == std::end(kGroups) ? nullptr : found;
}

bool KeyFits(const CounterGroup& group, std::string_view key) {
  if (key.size() > group.longest) return false;
  if (group.forms.empty()) return true;
  for (std::string_view rest = group.forms;;) {
    const std::size_t end = rest.find(' ');
    if (Matches(rest.substr(0, end), key)) return true;
    if (end == std::string_view::npos) return false;
    rest.remove_prefix(end + 1);
  }
}

}  // namespace flow::test
