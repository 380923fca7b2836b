// Identifiers of the component classes, interfaces and component categories. The library exports
// each of them as a constant under this name.
#pragma once

#include "flowhandlers/guid.h"

#if defined(__GNUC__)
#define FLOW_EXPORT __attribute__((visibility("default")))
#else
#define FLOW_EXPORT
#endif

// Component classes, in the order in which the module lists them.
FLOW_EXPORT extern const CLSID CLSID_PI_NETFLOWMETER;  // NetFlow and IPFIX meter
FLOW_EXPORT extern const CLSID CLSID_PI_NETFLOW;       // NetFlow and IPFIX protocol handler
FLOW_EXPORT extern const CLSID CLSID_PI_NETFLOWGEN;    // counter group of exporters
FLOW_EXPORT extern const CLSID CLSID_PI_NETFLOWINTF;   // counter group of exporters' interfaces
FLOW_EXPORT extern const CLSID CLSID_PI_SFLOWMETER;    // sFlow meter
FLOW_EXPORT extern const CLSID CLSID_PI_SFLOW;         // sFlow protocol handler

// Interfaces that the library implements.
FLOW_EXPORT extern const IID IID_IArboUnknown;
FLOW_EXPORT extern const IID IID_IArboClassFactory;
FLOW_EXPORT extern const IID IID_IOmbrelPlugin;
FLOW_EXPORT extern const IID IID_IOmbrelSimpleCounter;
FLOW_EXPORT extern const IID IID_IOmbrelChannelListener;
FLOW_EXPORT extern const IID IID_IOmbrelProtHandler;
FLOW_EXPORT extern const IID IID_IOmbrelAccessPointClient;
FLOW_EXPORT extern const IID IID_IOmbrelCounterGroupHost;
FLOW_EXPORT extern const IID IID_IOmbrelComponentPackage;

// Interfaces that the host implements.
FLOW_EXPORT extern const IID IID_IOmbrelContainer;
FLOW_EXPORT extern const IID IID_IOmbrelStatsEngine;
FLOW_EXPORT extern const IID IID_IOmbrelProtData;
FLOW_EXPORT extern const IID IID_IOmbrelParseContext;

// Categories of the host's plug-in model. Nothing in the library reads them.
FLOW_EXPORT extern const GUID CATID_ZephCtr;
FLOW_EXPORT extern const GUID CATID_ZephPlugIn;

// Protocol layers of the host.
inline constexpr IID UPID_IP = MakeGuid("0A2C724B-5B9F-4BA6-9C97-B05080558574");   // IPv4
inline constexpr IID UPID_UDP = MakeGuid("14D7AB53-CC51-47E9-8814-9C06AAE60189");  // UDP

// The channels on which NetFlow meters share the templates that they learn. On the second one a
// message begins with the exporter's observation domain, 4 bytes in network order.
inline constexpr GUID CHANNELID_NETFLOW_TEMPLATES =
    MakeGuid("82374096-ABAD-38AB-B1C8-8B7683F440BD");
inline constexpr GUID CHANNELID_NETFLOW_DOMAIN_TEMPLATES =
    MakeGuid("B27D41E6-09C5-4E7A-8F64-D13A5C7E2098");
