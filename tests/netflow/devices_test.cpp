// Export datagrams of real devices through a whole meter. What is expected was read from their
// bytes by a program of its own, which shares nothing with the decoder here.

#include <cstdio>
#include <ostream>
#include <set>

#include "tests/netflow/meter_test.h"
#include "tests/support/samples.h"

namespace flow::test {
namespace {

struct Device {
  const char* name;
  std::vector<std::string> datagrams;  // in the order in which the device sent them
  std::size_t flows;
  std::uint64_t bytes;
  std::uint64_t packets;
  std::size_t shown = 0;  // one flow in full: its place among the device's flows,
  const char* flow = "";  // and what its calls say; empty: not shown
  bool variable = false;  // with fields of variable length

  friend void PrintTo(const Device& row, std::ostream* out) { *out << row.name; }
};

class DeviceTest : public testing::TestWithParam<Device> {};

TEST_P(DeviceTest, IsMetered) {
  if (SampleDirectory().empty()) GTEST_SKIP() << "no captures beside the project";
  const Device& device = GetParam();
  RecordingHost host;
  host.Policy(kWholeFlows + (device.variable
                                 ? "<AllowVariableLengthStrings>true</AllowVariableLengthStrings>"
                                 : ""));
  const auto meter = host.Attach<CPINetflowMeter>();
  host.Forget();
  for (const std::string& name : device.datagrams) {
    EXPECT_NE(host.Count(meter, ReadSample(name)), kStatusFailed) << name;
  }
  const Texts lines = host.Take();
  Texts flows = Digest(lines);
  std::erase_if(flows, [](const std::string& text) {
    return text.starts_with("SetKey") || text.starts_with("volume");
  });
  std::uint64_t bytes = 0;
  std::uint64_t packets = 0;
  for (const std::string& line : lines) {
    unsigned long flow_bytes = 0;
    unsigned long flow_packets = 0;
    if (std::sscanf(line.c_str(), "%*s %*s %*s TOTALBW 0 %lu 1 %lu", &flow_bytes, &flow_packets) ==
        2) {
      bytes += flow_bytes;
      packets += flow_packets;
    }
  }
  EXPECT_EQ(flows.size(), device.flows);
  EXPECT_EQ(bytes, device.bytes);
  EXPECT_EQ(packets, device.packets);
  if (*device.flow == '\0') return;
  ASSERT_LT(device.shown, flows.size());
  EXPECT_EQ(flows[device.shown], device.flow);
}

// clang-format off
const std::vector<Device> kFixedFormats = {
    {"Netflow5", {"netflow5"}, 2, 534, 9, 0,
     "6 10.0.2.2:54435 > 10.0.2.15:22 if 0 > 0, 230 bytes 5 packets, as 0, as 0, from "
     "1430591884 898, to 1430591887 476"},
    {"Netflow5JuniperMx80", {"netflow5_test_juniper_mx80"}, 29, 3989000, 31000, 0,
     "6 10.0.0.1:443 > 192.168.0.2:61608 if 542 > 536, 1500000 bytes 1000 packets, as 64497,"
     " as 64496, from 1469109154 936, to 1469109154 936"},
    {"Netflow5Mikrotik", {"netflow5_test_microtik"}, 30, 40812, 160, 29,
     "6 10.0.8.1:80 > 192.168.0.1:51826 if 13 > 46, 11442 bytes 13 packets, as 0, as 0, from"
     " 1469109102 254, to 1469109102 254, closed"},
    {"Netflow5Invalid01", {"netflow5_test_invalid01"}, 0, 0, 0},
    {"Netflow5Invalid02", {"netflow5_test_invalid02"}, 0, 0, 0},
};

const std::vector<Device> kV9Devices = {
    {"CiscoAsr1001x", {"netflow9_cisco_asr1001x_tpl259"}, 21, 37963, 117, 0,
     "6 10.111.111.242:52444 > 10.12.100.13:53218 if 4 > 16, 965 bytes 7 packets, as 0, as "
     "0, net 0.0.0.0/0, net 0.0.0.0/0, bgp 00.00.00.00, hop 0A.0A.05.64, tag 13:1310, from "
     "1506460063 535, to 1506460063 535"},
    {"Cisco1941", {"netflow9_test_cisco_1941K9"}, 29, 70258, 370, 28,
     "6 192.168.0.95:35053 > 169.45.214.246:5222 if 17 > 0, 194 bytes 3 packets, as 0, as 0,"
     " net 0.0.0.0/0, net 0.0.0.0/0, bgp 00.00.00.00, hop 6D.A6.D8.5D, tag 5:1, from "
     "1506839938 880, to 1506839938 880, mac A0:39:F7:4D:49:D5"},
    {"CiscoAci", {"netflow9_test_cisco_aci_tpl256-258", "netflow9_test_cisco_aci_data256"}, 3,
     297, 6, 0,
     "6 10.154.231.145:179 > 10.154.231.146:49411 if 369139712 > 0, 99 bytes 2 packets, as "
     "0, as 0, net 0.0.0.0/0, net 0.0.0.0/0, bgp 00.00.00.00, hop 00.00.00.00, from "
     "1539602884 19, to 1539602903 66"},
    {"CiscoAsa1", {"netflow9_test_cisco_asa_1_tpl", "netflow9_test_cisco_asa_1_data"}, 14, 888, 0,
     0,
     "1 192.168.14.1:65535 > 2.2.2.11:17549 if 3 > 2, 56 bytes 0 packets, as 0, as 0, net "
     "0.0.0.0/0, net 0.0.0.0/0, bgp 00.00.00.00, hop 00.00.00.00, from 1445657064 506, to "
     "1445826390 430"},
    {"CiscoAsa2", {"netflow9_test_cisco_asa_2_tpl_26x", "netflow9_test_cisco_asa_2_tpl_27x",
     "netflow9_test_cisco_asa_2_data"}, 30, 130362, 0, 29,
     "6 192.168.0.18:80 > 192.168.0.1:56651 if 4 > 3, 69 bytes 0 packets, as 0, as 0, net "
     "0.0.0.0/0, net 0.0.0.0/0, bgp 00.00.00.00, hop 00.00.00.00, from 1468599848 73, to "
     "1469838735 846"},
    {"CiscoAsr9kInterfaces", {"netflow9_test_cisco_asr9k_opttpl256",
     "netflow9_test_cisco_asr9k_data256"}, 0, 0, 0},
    {"CiscoAsr9k", {"netflow9_test_cisco_asr9k_opttpl257", "netflow9_test_cisco_asr9k_opttpl334",
     "netflow9_test_cisco_asr9k_tpl260", "netflow9_test_cisco_asr9k_tpl266",
     "netflow9_test_cisco_asr9k_data260"}, 20, 207942, 530, 19,
     "6 10.0.29.46:443 > 10.0.15.38:52364 if 75 > 158, 112 bytes 2 packets, as 15169, as "
     "64498, net 10.0.29.0/24, net 10.0.15.0/24, bgp 0A.00.0E.1B, hop 00.00.00.00, in "
     "VRF:1610612736, from 1481018932 377, to 1481018933 964, closed"},
    {"CiscoNbar", {"netflow9_test_cisco_nbar_opttpl260", "netflow9_test_cisco_nbar_tpl262",
     "netflow9_test_cisco_nbar_data262"}, 5, 3064, 40, 4,
     "17 10.10.172.60:45269 > 10.30.19.180:161 if 1 > 0, 2794 bytes 36 packets, as 0, as 0, "
     "net 0.0.0.0/0, net 0.0.0.0/0, bgp 00.00.00.00, hop 00.00.00.00, tag 5:38, from "
     "1487070619 936, to 1487070620 8, mac 00:18:19:9E:6C:01"},
    {"CiscoWlc", {"netflow9_test_cisco_wlc_tpl", "netflow9_test_cisco_wlc_data261"}, 0, 0, 0},
    {"CiscoWlc8510", {"netflow9_test_cisco_wlc_8510_tpl_262"}, 0, 0, 0},
    {"Layer2SegmentId", {"netflow9_test_field_layer2segmentid_tpl",
     "netflow9_test_field_layer2segmentid_data"}, 1, 52, 1},
    {"Fortigate521", {"netflow9_test_fortigate_fortios_521_tpl",
     "netflow9_test_fortigate_fortios_521_data256",
     "netflow9_test_fortigate_fortios_521_data257"}, 1, 152, 3},
    {"Fortigate542", {"netflow9_test_fortigate_fortios_542_appid_tpl258-269",
     "netflow9_test_fortigate_fortios_542_appid_data258_262"}, 34, 58984, 210, 33,
     "6 192.168.100.111:80 > 192.168.100.150:51745 if 0 > 8, 2164 bytes 8 packets, as 0, as "
     "0, net 0.0.0.0/0, net 0.0.0.0/0, bgp 00.00.00.00, hop 00.00.00.00, from 1526000036 190, to "
     "1526000040 190, closed"},
    {"H3c", {"netflow9_test_h3c_tpl3281", "netflow9_test_h3c_data3281"}, 16, 8729687, 6113, 0,
     "6 10.22.166.30:0 > 10.22.163.21:0 if 2662 > 1590, 1027087 bytes 697 packets, as 0, as "
     "0, net 10.22.166.0/24, net 10.22.163.0/24, bgp 00.00.00.00, hop 0A.15.19.8E, from "
     "1526894614 158, to 1526894703 677"},
    {"H3cVariable", {"netflow9_test_h3c_netstream_varstring_tpl3281",
     "netflow9_test_h3c_netstream_varstring_data3281"}, 0, 0, 0},
    {"Huawei", {"netflow9_test_huawei_netstream_tpl", "netflow9_test_huawei_netstream_data"}, 1,
     200, 4, 0,
     "6 10.108.219.53:45587 > 10.111.112.204:2598 if 8 > 31, 200 bytes 4 packets, as 0, as "
     "0, net 10.108.219.0/24, net 10.111.112.128/25, bgp 00.00.00.00, hop 0A.6C.FC.29, from "
     "1517194611 940, to 1517194939 0"},
    {"IptNetflow", {"netflow9_test_iptnetflow_reduced_size_encoding_tpldata260"}, 12, 7598, 74,
     11,
     "6 2.17.140.47:443 > 10.233.150.21:38164 if 7 > 8, 187 bytes 3 packets, as 0, as 0, net"
     " 0.0.0.0/0, net 0.0.0.0/0, bgp 00.00.00.00, hop 0A.E8.05.01, from 1518932813 800, to "
     "1518932813 992, mac 90:E2:BA:23:09:FC"},
    {"JuniperSrx", {"netflow9_test_juniper_srx_tplopt"}, 0, 0, 0},
    {"MacAddresses", {"netflow9_test_macaddr_tpl", "netflow9_test_macaddr_data"}, 0, 0, 0},
    {"Nprobe", {"netflow9_test_nprobe_tpl", "netflow9_test_nprobe_data",
     "netflow9_test_nprobe_dpi"}, 2, 282, 3},
    {"PaloAlto81", {"netflow9_test_paloalto_81_tpl256-263",
     "netflow9_test_paloalto_81_data257_1flowset_in_large_zerofilled_packet"}, 1, 363, 3, 0,
     "6 134.220.2.6:88 > 134.220.1.156:50234 if 500010024 > 500010002, 363 bytes 3 packets, "
     "as 0, as 0, net 0.0.0.0/0, net 0.0.0.0/0, bgp 00.00.00.00, hop 00.00.00.00, from "
     "1528291202 0, to 1528291202 0, closed, app unknown 0, app unknown 5, app unknown 3, "
     "user kerberos 0, user kerberos 5, user kerberos 3"},
    {"PaloAltoPanos", {"netflow9_test_paloalto_panos_tpl", "netflow9_test_paloalto_panos_data"},
     8, 617, 8},
    {"Softflowd9", {"netflow9_test_softflowd_tpl_data"}, 7, 1128, 13, 6,
     "58 fe80::20c:29ff:fe83:3b6e:65535 > ff02::1:34304 if 0 > 0, 672 bytes 7 packets, as 0,"
     " as 0, net ::/0, net ::/0, bgp 00.00.00.00, hop 00.00.00.00, from 1444331027 819, to "
     "1444331065 900"},
    {"Streamcore256", {"netflow9_test_streamcore_tpl_data256"}, 2, 300, 7},
    {"Streamcore260", {"netflow9_test_streamcore_tpl_data260"}, 2, 6995, 21},
    {"Ubiquiti", {"netflow9_test_ubnt_edgerouter_tpl", "netflow9_test_ubnt_edgerouter_data1024",
     "netflow9_test_ubnt_edgerouter_data1025"}, 16, 20418, 114, 15,
     "6 192.168.1.102:47690 > 10.2.0.95:443 if 2 > 4, 3668 bytes 21 packets, as 0, as 0, net"
     " 0.0.0.0/0, net 0.0.0.0/0, bgp 00.00.00.00, hop 00.00.00.00, from 1473519773 375, to "
     "1473521024 363, closed, mac 44:D9:E7:BE:EF:8E"},
    {"UnknownTemplates", {"netflow9_test_unknown_tpl266_292_data"}, 2, 310, 2},
    {"Valid01", {"netflow9_test_valid01"}, 7, 1128, 13},
    {"Invalid01", {"netflow9_test_invalid01"}, 0, 0, 0},
    {"ZeroLengthFields", {"netflow9_test_0length_fields_tpl_data"}, 3, 96, 3, 0,
     "2 239.255.255.250:0 > 192.168.1.80:0 if 3 > 2, 32 bytes 1 packets, as 0, as 0, net "
     "239.255.255.250/32, net 192.168.1.80/32, bgp 00.00.00.00, hop 00.00.00.00, from "
     "1482456888 299, to 1482456888 299"},
};

const std::vector<Device> kIpfixDevices = {
    {"Ipfix", {"ipfix"}, 6, 10563, 42, 5,
     "6 192.168.253.132:49935 > 54.214.9.161:443 if 0 > 0, 2608 bytes 13 packets, as 0, as "
     "0, net 0.0.0.0/0, net 0.0.0.0/0, bgp 00.00.00.00, hop 00.00.00.00, from 1430084511 "
     "116, to 1430084512 366, closed"},
    {"Barracuda", {"ipfix_test_barracuda_tpl", "ipfix_test_barracuda_data256"}, 4, 388, 4},
    {"BarracudaUniflow", {"ipfix_test_barracuda_extended_uniflow_tpl256",
     "ipfix_test_barracuda_extended_uniflow_data256"}, 2, 3048078814, 2, 0,
     "", true},
    {"Ixia256", {"ipfix_test_ixia_tpldata256"}, 1, 360, 4, 0,
     "", true},
    {"Ixia271", {"ipfix_test_ixia_tpldata271"}, 1, 132, 2, 0,
     "17 61.227.100.96:9487 > 202.170.60.245:43431 if 45 > 45, 132 bytes 2 packets, as 3462,"
     " as 24090, net 0.0.0.0/0, net 0.0.0.0/0, bgp 00.00.00.00, hop 00.00.00.00, from "
     "1540470282 983, to 1540470282 989, closed", true},
    {"JuniperMx240", {"ipfix_test_juniper_mx240_junos151r6s3_opttpl512",
     "ipfix_test_juniper_mx240_junos151r6s3_data512"}, 0, 0, 0},
    {"Mikrotik", {"ipfix_test_mikrotik_tpl", "ipfix_test_mikrotik_data258",
     "ipfix_test_mikrotik_data259"}, 46, 103235, 253, 45,
     "17 fe80::ff:fe00:1201:5678 > fe80::ff:fe00:1201:5678 if 17 > 0, 370 bytes 2 packets, "
     "as 0, as 0, net ::/0, net ::/0, bgp 00.00.00.00, hop 00.00.00.00, from 1501647402 662,"
     " to 1501647402 662"},
    {"Netscaler", {"ipfix_test_netscaler_tpl", "ipfix_test_netscaler_data"}, 3, 3106, 5, 2,
     "6 192.168.0.1:51053 > 10.0.0.1:443 if 8 > 2147483651, 1541 bytes 2 packets, as 0, as "
     "0, net 0.0.0.0/0, net 0.0.0.0/0, bgp 00.00.00.00, hop 00.00.00.00, from 1477387292 "
     "841, to 1477387292 841", true},
    {"NetscalerFixedLengths", {"ipfix_test_netscaler_tpl", "ipfix_test_netscaler_data"}, 1, 1525,
     2},
    {"NokiaBras", {"ipfix_test_nokia_bras_tpl", "ipfix_test_nokia_bras_data256"}, 0, 0, 0},
    {"OpenBsdPflow", {"ipfix_test_openbsd_pflow_tpl", "ipfix_test_openbsd_pflow_data"}, 26,
     99323, 209},
    {"Procera", {"ipfix_test_procera_tpl52935", "ipfix_test_procera_data52935"}, 0, 0, 0, 0,
     "", true},
    {"Viptela", {"ipfix_test_viptela_tpl257", "ipfix_test_viptela_data257"}, 1, 775, 8, 0,
     "6 10.113.7.54:41717 > 172.16.21.27:443 if 11 > 3, 775 bytes 8 packets, as 0, as 0, net"
     " 0.0.0.0/0, net 0.0.0.0/0, bgp 00.00.00.00, hop 0A.00.00.01, from 1509209707 73, to "
     "1509209707 73, closed"},
    {"VmwareVds", {"ipfix_test_vmware_vds_tpl", "ipfix_test_vmware_vds_data264",
     "ipfix_test_vmware_vds_data266", "ipfix_test_vmware_vds_data266_267"}, 5, 806, 8, 4,
     "17 fe80::5187:5cd8:d750:cdc9:61329 > ff02::1:3:5355 if 3 > 11, 144 bytes 2 packets, as"
     " 0, as 0, net ::/0, net ::/0, bgp 00.00.00.00, hop 00.00.00.00, from 1482409563 985, "
     "to 1482409563 985"},
    {"Yaf", {"ipfix_test_yaf_tpls_option_tpl", "ipfix_test_yaf_tpl45841",
     "ipfix_test_yaf_data45841", "ipfix_test_yaf_data45873", "ipfix_test_yaf_data53248"}, 0, 0, 0,
     0,
     "", true},
};
// clang-format on

std::string NameOf(const testing::TestParamInfo<Device>& info) { return info.param.name; }

INSTANTIATE_TEST_SUITE_P(Fixed, DeviceTest, testing::ValuesIn(kFixedFormats), NameOf);
INSTANTIATE_TEST_SUITE_P(V9, DeviceTest, testing::ValuesIn(kV9Devices), NameOf);
INSTANTIATE_TEST_SUITE_P(Ipfix, DeviceTest, testing::ValuesIn(kIpfixDevices), NameOf);

TEST(DeviceSamples, AllAreReplayed) {
  if (SampleDirectory().empty()) GTEST_SKIP() << "no captures beside the project";
  std::set<std::string> replayed;
  for (const auto* const devices : {&kFixedFormats, &kV9Devices, &kIpfixDevices}) {
    for (const Device& row : *devices) replayed.insert(row.datagrams.begin(), row.datagrams.end());
  }
  EXPECT_THAT(SampleNames(), testing::ElementsAreArray(replayed));
}

// Devices that announce more records than they send.
TEST(DeviceSamples, TruncatedPackets) {
  if (SampleDirectory().empty()) GTEST_SKIP() << "no captures beside the project";
  RecordingHost host;
  const auto meter = host.Attach<CPINetflowMeter>();
  host.Forget();
  for (const char* name : {"netflow5_test_invalid01", "netflow5_test_invalid02"}) {
    EXPECT_EQ(host.Count(meter, ReadSample(name)), 1U);
    EXPECT_STREQ(meter->LastErrorText(), "Netflow 5 packet appears to be truncated\n");
  }
  EXPECT_EQ(host.TakeText(), "");
}

// What options data says about applications and about the sampling.
TEST(DeviceSamples, OptionsData) {
  if (SampleDirectory().empty()) GTEST_SKIP() << "no captures beside the project";
  RecordingHost host;
  const auto meter = host.Attach<CPINetflowMeter>();
  host.Count(meter, ReadSample("netflow9_test_cisco_nbar_opttpl260"));
  const Texts names = host.Take("SetKeyAttributes COUNTERID_NBAR");
  ASSERT_EQ(names.size(), 5U * 15U);
  EXPECT_EQ(names.front(), "SetKeyAttributes COUNTERID_NBAR 1:8 egp Exterior Gateway Protocol");
  EXPECT_EQ(names.back(), "SetKeyAttributes COUNTERID_NBAR 1:13 argus ARGUS");
  host.Count(meter, ReadSample("ipfix_test_juniper_mx240_junos151r6s3_opttpl512"));
  host.Count(meter, ReadSample("ipfix_test_juniper_mx240_junos151r6s3_data512"));
  EXPECT_THAT(host.Take("SetKeyProperty"),
              testing::ElementsAre(
                  "SetKeyProperty COUNTERID_FLOWGEN C0.00.02.01 netflow.sampling_rate 1000"));
}

}  // namespace
}  // namespace flow::test
