// SPDX-License-Identifier: Apache-2.0
#include "netflow/netflow_handler.h"

std::span<ACCPT_T> CPINetflow::AccessPoints() {
  static ACCPT_T points[] = {
      {0, 2055, 0, &UPID_UDP}, {0, 2056, 0, &UPID_UDP}, {0, 2057, 0, &UPID_UDP},
      {0, 4739, 0, &UPID_UDP}, {0, 9500, 0, &UPID_UDP}, {0, 9993, 0, &UPID_UDP},
  };
  return points;
}

Status CPINetflow::GenerateParse(IOmbrelProtData* data, DISPOSITION_CODE_T* disposition,
                                 IOmbrelParseContext* context) {
  Status buffer_status = kStatusOk;
  const Status claimed = ClaimDatagram(data, disposition, context, &buffer_status);
  return claimed == kStatusOk ? buffer_status : claimed;
}
