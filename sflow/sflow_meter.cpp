// SPDX-License-Identifier: Apache-2.0
#include "sflow/sflow_meter.h"

#include <memory>

#include "plugin/site_log.h"
#include "sflow/sflow_decoder.h"
#include "sflow/sflow_handler.h"

namespace {

constexpr char kPolicyFile[] = "SFlowCounterPolicy.xml";
constexpr char kRootElement[] = "OmbrelPluginConfiguration";

}  // namespace

Status CPISFlowMeter::AttachSite(IOmbrelContainer* site) {
  KeepSite(site);
  site_->Log(kLogProgress, "Loading sflow metering policy configuration");
  home_.Fetch(site_);

  char* path = nullptr;
  const Status status = site_->PreparePluginConfigFile(CLSID_PI_SFLOWMETER, kPolicyFile, &path);
  const std::unique_ptr<char[]> owned_path(path);
  if (status != kStatusOk || path == nullptr) {
    site_->Log(kLogError, "Error preparing plugin configuration file. Cant proceed");
    return kStatusFailed;
  }
  if (!ReadConfiguration(path)) {
    site_->Log(kLogError, "Unable to load sflow  policy information from configuration");
    return kStatusFailed;
  }
  site_->Log(kLogInformation, "Attached site to SFLOW Counter Plugin");
  return kStatusOk;
}

bool CPISFlowMeter::ReadConfiguration(const char* path) {
  const XMLNode root = XMLNode::openFileHelper(path, kRootElement);
  return policy_.Load(root.getChildNode("Policy"), site_);
}

Status CPISFlowMeter::GetAttachmentProtID(IID* protocol) {
  *protocol = kProtocolSFlow;
  return kStatusOk;
}

Status CPISFlowMeter::IsFlowCounter(bool* isFlow) {
  *isFlow = true;
  return kStatusOk;
}

Status CPISFlowMeter::Count(IOmbrelStatsEngine* engine, IOmbrelProtData* data) {
  const std::uint8_t* datagram = nullptr;
  std::uint32_t length = 0;
  data->GetBuffer(&datagram, &length);
  if (datagram == nullptr) length = 0;  // the host has no such bytes
  engine_ = engine;
  datagram_length_ = length;
  has_agent_ = false;
  parseSFlowCallback(this, SFlow_Parser_Callback, datagram, length);
  engine_ = nullptr;
  return kStatusOk;
}

int SFlow_Parser_Callback(void* context, _SFSample* sample) {
  auto* const meter = static_cast<CPISFlowMeter*>(context);
  meter->MeterSFlow(*sample);
  meter->ForgetPacket(sample);
  return 1;
}
