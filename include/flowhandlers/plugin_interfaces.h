// SPDX-License-Identifier: Apache-2.0
// The interfaces that the library's components implement and the host calls. The order of the
// operations is the binary interface; nothing may be added before or between them.
//
// The host calls one component from one thread at a time. A text that an operation stores through a
// char** is a new[] array that the host frees with delete[].
#pragma once

#include "flowhandlers/arbo_unknown.h"
#include "flowhandlers/host_interfaces.h"

// What every component offers: its site and its identity.
struct IOmbrelPlugin : IArboUnknown {
  static constexpr const IID* kId = &IID_IOmbrelPlugin;

  // AttachSite gives the component its site, on which it takes a reference. A meter reads its
  // policy here; kStatusFailed means that it could not.
  virtual Status AttachSite(IOmbrelContainer* site) = 0;

  // DetachSite makes the component forget its site. The reference is not given back.
  virtual Status DetachSite() = 0;

  // GetPluginID tells the component's name, description, vendor and version. kStatusNullOutput, and
  // nothing stored, when any of the five is null.
  virtual Status GetPluginID(char** name, char** description, char** vendor,
                             unsigned int* versionMajor, unsigned int* versionMinor) = 0;
};

// A meter: counts the datagrams of the protocol that it is attached to.
struct IOmbrelSimpleCounter : IArboUnknown {
  static constexpr const IID* kId = &IID_IOmbrelSimpleCounter;

  // GetAttachmentProtID tells the protocol whose datagrams the meter wants.
  virtual Status GetAttachmentProtID(IID* protocol) = 0;

  // Count meters one datagram into the engine; data is the layer that holds the UDP payload.
  virtual Status Count(IOmbrelStatsEngine* engine, IOmbrelProtData* data) = 0;

  // IsFlowCounter tells whether the meter updates flows.
  virtual Status IsFlowCounter(bool* isFlow) = 0;
};

// A listener on the host's message channels.
struct IOmbrelChannelListener : IArboUnknown {
  static constexpr const IID* kId = &IID_IOmbrelChannelListener;

  // OnChannelMessage delivers a message of length bytes, valid during the call. The host never
  // calls it while the same component is inside Count.
  virtual Status OnChannelMessage(const IID& channel, unsigned int length, void* data) = 0;
  virtual Status FlushDeferredMessages() = 0;
  virtual Status SetDeferredMode(bool on) = 0;
};

// A protocol handler: recognises the datagrams of one protocol.
struct IOmbrelProtHandler : IArboUnknown {
  static constexpr const IID* kId = &IID_IOmbrelProtHandler;

  // GetProtID tells the protocol's identifier and name.
  virtual Status GetProtID(IID* protocol, char** name) = 0;

  // GenerateParse claims a datagram: it tells the context the length taken and stores
  // kDispositionClaimed. kStatusTooShort leaves the datagram to others.
  virtual Status GenerateParse(IOmbrelProtData* data, DISPOSITION_CODE_T* disposition,
                               IOmbrelParseContext* context) = 0;
};

// A client of access points: the UDP ports on which a handler's protocol arrives.
struct IOmbrelAccessPointClient : IArboUnknown {
  static constexpr const IID* kId = &IID_IOmbrelAccessPointClient;

  // GetPrefAPHosts gives the table of preferred ports, which belongs to the library.
  virtual Status GetPrefAPHosts(unsigned short* count, ACCPT_T** table) = 0;
  virtual Status GetAPClientProtID(IID* protocol) = 0;
  virtual Status SetupFreeAP(IOmbrelProtData* data, bool* result) = 0;
};

// A group of counters, described to the host.
struct IOmbrelGroupHost : IArboUnknown {
  virtual Status get_GUID(IID* out) = 0;
  virtual Status get_Name(char** out) = 0;
  virtual Status get_Description(char** out) = 0;

  // Whether the host keeps a list of the largest keys, and of how many.
  virtual Status get_EnableTopN(bool* out) = 0;
  virtual Status get_TopNCount(unsigned short* out) = 0;

  // Length of a time bucket in milliseconds.
  virtual Status get_BucketSizeMS(unsigned int* out) = 0;

  // Numbers of keys at which the host starts and stops to prune the group.
  virtual Status get_TrackHiWater(unsigned int* out) = 0;
  virtual Status get_TrackLoWater(unsigned int* out) = 0;

  // GetVariableDefs gives the group's meters; the table belongs to the library.
  virtual Status GetVariableDefs(unsigned short* count, VARDEFS_T** definitions) = 0;
  virtual Status LoadInitialData(IOmbrelContainer* site) = 0;

  // get_ResolverGUID names the component that turns keys into names: none, the null GUID.
  virtual Status get_ResolverGUID(IID* out) {
    *out = IID{};
    return kStatusOk;
  }
};

struct IOmbrelCounterGroupHost : IOmbrelGroupHost {
  static constexpr const IID* kId = &IID_IOmbrelCounterGroupHost;

  virtual Status get_TrafTableName(char** out) = 0;
};

// The module's table of components.
struct IOmbrelComponentPackage : IArboUnknown {
  static constexpr const IID* kId = &IID_IOmbrelComponentPackage;

  virtual Status GetComponentCount(unsigned int* count) = 0;

  // GetComponentCLSID gives the class of entry index: kStatusIndexRange past the end (tested
  // first), kStatusNullOutput without an output.
  virtual Status GetComponentCLSID(unsigned int index, IID* clsid) = 0;

  // GetClassFactory gives the factory of a class, with a reference for the caller. An unknown class
  // is a success with a null factory.
  virtual Status GetClassFactory(const IID& clsid, IArboClassFactory** factory) = 0;
};
