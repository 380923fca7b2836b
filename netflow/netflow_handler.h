// SPDX-License-Identifier: Apache-2.0
// The NetFlow protocol handler: tells the host on which UDP ports NetFlow and IPFIX arrive, and
// claims their datagrams.
#pragma once

#include "plugin/protocol_handler.h"

namespace flow {

// Names NetFlow and IPFIX among the host's protocols.
inline constexpr IID kNetflowProtocol = MakeGuid("CEF0774D-F1F3-40A6-8987-168BD69D9901");

}  // namespace flow

class CPINetflow : public CArboProtocolHandler<CPINetflow> {
 public:
  // The bracket without a partner belongs to the text by which hosts know the component.
  static constexpr PluginIdentity kIdentity = {
      "NetFlow Protocol Handler", "Capable of dissection and handoff of the NetFlow protocol)"};
  static constexpr HandledProtocol kProtocol = {flow::kNetflowProtocol, "Netflow",
                                                "Attached site to NetFlow Protocol Plugin"};
  static std::span<ACCPT_T> AccessPoints();

  Status GenerateParse(IOmbrelProtData* data, DISPOSITION_CODE_T* disposition,
                       IOmbrelParseContext* context) override;
};
