// SPDX-License-Identifier: Apache-2.0
// Identifiers of the component classes, interfaces and component categories: constants for whoever
// includes this. The library also exports each under its name, for hosts that use dlsym.
#pragma once

#include "flowhandlers/guid.h"

#ifdef FLOW_BUILDS_LIBRARY
#define FLOW_EXPORT __attribute__((visibility("default")))
#else
#define FLOW_EXPORT
#endif

// Component classes, in the order in which the module lists them.
FLOW_EXPORT inline constexpr CLSID CLSID_PI_NETFLOWMETER =
    MakeGuid("7CA09636-02D4-45E7-AA00-BE0D49B94E26");  // NetFlow and IPFIX meter
FLOW_EXPORT inline constexpr CLSID CLSID_PI_NETFLOW =
    MakeGuid("CED041A0-EB30-4D8F-87A0-E82CFD85B7F1");  // NetFlow and IPFIX protocol handler
FLOW_EXPORT inline constexpr CLSID CLSID_PI_NETFLOWGEN =
    MakeGuid("86E049AD-0347-41C5-9B56-CCFAFCD59723");  // counter group of exporters
FLOW_EXPORT inline constexpr CLSID CLSID_PI_NETFLOWINTF =
    MakeGuid("06F3B907-7E02-420E-853F-89A8F55C0F29");  // counter group of exporters' interfaces
FLOW_EXPORT inline constexpr CLSID CLSID_PI_SFLOWMETER =
    MakeGuid("819CEF8E-B6DB-431B-97D0-7DB2A5EA5392");  // sFlow meter
FLOW_EXPORT inline constexpr CLSID CLSID_PI_SFLOW =
    MakeGuid("90019992-EB30-4D8F-87A0-E82CFD85B7F1");  // sFlow protocol handler

// Interfaces that the library implements.
FLOW_EXPORT inline constexpr IID IID_IArboUnknown =
    MakeGuid("ABA137E7-125E-48D0-8AC9-A7E3AD2F60FD");
FLOW_EXPORT inline constexpr IID IID_IArboClassFactory =
    MakeGuid("877789A9-125E-48D0-8AC9-A7E3AD2F60FD");
FLOW_EXPORT inline constexpr IID IID_IOmbrelPlugin =
    MakeGuid("5BA137E7-125E-48D0-8AC9-A7E3AD2F60FD");
FLOW_EXPORT inline constexpr IID IID_IOmbrelSimpleCounter =
    MakeGuid("CABBABA9-125E-48D0-8AC9-A7E3AD2F60FD");
FLOW_EXPORT inline constexpr IID IID_IOmbrelChannelListener =
    MakeGuid("CAA01100-7720-8389-01BB-81B0C1E098FF");
FLOW_EXPORT inline constexpr IID IID_IOmbrelProtHandler =
    MakeGuid("774737E7-125E-48D0-8AC9-A7E3AD2F60FD");
FLOW_EXPORT inline constexpr IID IID_IOmbrelAccessPointClient =
    MakeGuid("C8383837-125E-48D0-8AC9-A7E3AD2F60FD");
FLOW_EXPORT inline constexpr IID IID_IOmbrelCounterGroupHost =
    MakeGuid("343137E7-125E-48D0-8AC9-A7E3AD2F60FD");
FLOW_EXPORT inline constexpr IID IID_IOmbrelComponentPackage =
    MakeGuid("2BA137E7-125E-48D0-8AC9-A7E3AD2F60FD");

// Interfaces that the host implements.
FLOW_EXPORT inline constexpr IID IID_IOmbrelContainer =
    MakeGuid("3BA137E7-125E-48D0-8AC9-A7E3AD2F60FD");
FLOW_EXPORT inline constexpr IID IID_IOmbrelStatsEngine =
    MakeGuid("88822AAA-125E-48D0-8AC9-A7E3AD2F60FD");
FLOW_EXPORT inline constexpr IID IID_IOmbrelProtData =
    MakeGuid("334237E7-125E-48D0-8AC9-A7E3AD2F60FD");
FLOW_EXPORT inline constexpr IID IID_IOmbrelParseContext =
    MakeGuid("998937E7-125E-48D0-8AC9-A7E3AD2F60FD");

// Categories of the host's plug-in model. Nothing in the library reads them.
FLOW_EXPORT inline constexpr GUID CATID_ZephCtr = MakeGuid("4480F65A-D478-4D20-8497-FB720DC9AB22");
FLOW_EXPORT inline constexpr GUID CATID_ZephPlugIn =
    MakeGuid("8846F3B3-A61B-45AD-88D2-89F5BCF65873");

// Protocol layers of the host.
inline constexpr IID UPID_IP = MakeGuid("0A2C724B-5B9F-4BA6-9C97-B05080558574");   // IPv4
inline constexpr IID UPID_UDP = MakeGuid("14D7AB53-CC51-47E9-8814-9C06AAE60189");  // UDP

// The channels on which NetFlow meters share the templates that they learn. On the second one a
// message begins with the exporter's observation domain, 4 bytes in network order.
inline constexpr GUID CHANNELID_NETFLOW_TEMPLATES =
    MakeGuid("82374096-ABAD-38AB-B1C8-8B7683F440BD");
inline constexpr GUID CHANNELID_NETFLOW_DOMAIN_TEMPLATES =
    MakeGuid("B27D41E6-09C5-4E7A-8F64-D13A5C7E2098");
