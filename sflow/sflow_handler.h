// SPDX-License-Identifier: Apache-2.0
// The protocol handler of sFlow: claims the datagrams of its UDP port.
#pragma once

#include "plugin/protocol_handler.h"

// The identifier of the sFlow protocol, by which the host brings handler and meter together.
inline constexpr IID kProtocolSFlow = MakeGuid("462919DD-EE84-497C-AC6F-05D1162BCC5B");

class CPISFlow : public CArboProtocolHandler<CPISFlow> {
 public:
  // The bracket without a partner belongs to the text by which hosts know the component.
  static constexpr PluginIdentity kIdentity = {
      "SFLOW Protocol Handler", "Capable of dissection and handoff of the SFLOW protocol)"};
  static constexpr HandledProtocol kProtocol = {kProtocolSFlow, "SFlow",
                                                "Attached site to SFlow Protocol Plugin"};
  static std::span<ACCPT_T> AccessPoints();

  Status GenerateParse(IOmbrelProtData* data, DISPOSITION_CODE_T* disposition,
                       IOmbrelParseContext* context) override;
};
