// SPDX-License-Identifier: Apache-2.0
#include "sflow/sflow_handler.h"

std::span<ACCPT_T> CPISFlow::AccessPoints() {
  static ACCPT_T points[] = {{0, 6343, 0, &UPID_UDP}};
  return points;
}

Status CPISFlow::GenerateParse(IOmbrelProtData* data, DISPOSITION_CODE_T* disposition,
                               IOmbrelParseContext* context) {
  Status buffer_status = kStatusOk;  // a datagram of the right size is claimed whatever it says
  return ClaimDatagram(data, disposition, context, &buffer_status);
}
