// The meter as the host sees it, and the intake of a datagram.

#include "netflow/netflow_meter.h"

#include <cstring>
#include <memory>
#include <string>

#include "netflow/netflow_handler.h"
#include "plugin/site_log.h"

using flow::Log;

namespace {

constexpr char kPolicyFile[] = "NetflowCounterPolicy.xml";
constexpr std::size_t kShortestPacket = sizeof(nf5_header);

// RemoveShim takes a forwarder's shim off the packet and puts the exporter that it names into the
// IPv4 header, in place, so that everybody who looks at the datagram sees that exporter.
void RemoveShim(std::uint8_t* ip_layer, std::span<const std::uint8_t>* packet) {
  forwarding_shim shim;
  std::memcpy(&shim, packet->data(), sizeof(shim));
  if (std::memcmp(shim.begin, "OMBR", sizeof(shim.begin)) != 0 ||
      std::memcmp(shim.end, "LNSM", sizeof(shim.end)) != 0) {
    return;
  }
  std::memcpy(ip_layer + offsetof(ip_header, source), &shim.exporter, sizeof(shim.exporter));
  *packet = packet->subspan(sizeof(shim));
}

// The bytes of a layer, none when the host does not give them.
std::span<const std::uint8_t> BufferOf(IOmbrelProtData* layer) {
  const std::uint8_t* bytes = nullptr;
  std::uint32_t length = 0;
  layer->GetBuffer(&bytes, &length);
  return bytes == nullptr ? std::span<const std::uint8_t>()
                          : std::span<const std::uint8_t>(bytes, length);
}

// The IPv4 layer of the packet that carries a datagram, empty when there is none.
std::span<const std::uint8_t> IpLayerOf(IOmbrelProtData* data) {
  IOmbrelParseContext* context = nullptr;
  data->GetParseContext(&context);
  if (context == nullptr) return {};
  IOmbrelProtData* ip = nullptr;
  context->GetProtData(UPID_IP, &ip);
  if (ip == nullptr) return {};
  const auto layer = BufferOf(ip);
  return layer.size() < sizeof(ip_header) ? std::span<const std::uint8_t>() : layer;
}

}  // namespace

Status CPINetflowMeter::AttachSite(IOmbrelContainer* site) {
  KeepSite(site);
  char* directory = nullptr;
  site_->GetDataDirectory(&directory);
  home_as_feed_.SetDataDirectory(directory != nullptr ? directory : "");
  delete[] directory;
  Log(site_, kLogProgress, "Loading netflow metering policy configuration");
  home_networks_.Fetch(site_);
  char* prepared = nullptr;
  const Status status =
      site_->PreparePluginConfigFile(CLSID_PI_NETFLOWMETER, kPolicyFile, &prepared);
  const std::unique_ptr<char[]> path(prepared);
  if (status != kStatusOk || path == nullptr) {
    Log(site_, kLogError, "Error preparing plugin configuration file. Cant proceed");
    return kStatusFailed;
  }
  if (!ReadConfiguration(path.get())) {
    Log(site_, kLogError, "Unable to load netflow policy information from configuration");
    return kStatusFailed;
  }
  Log(site_, kLogInformation, "Attached site to Netflow Counter Plugin");
  return kStatusOk;
}

Status CPINetflowMeter::GetAttachmentProtID(IID* protocol) {
  *protocol = flow::kNetflowProtocol;
  return kStatusOk;
}

Status CPINetflowMeter::IsFlowCounter(bool* isFlow) {
  *isFlow = true;
  return kStatusOk;
}

Status CPINetflowMeter::Count(IOmbrelStatsEngine* engine, IOmbrelProtData* data) {
  engine_ = engine;
  const Bytes ip_layer = IpLayerOf(data);
  if (ip_layer.empty()) return kStatusOk;
  Bytes packet = BufferOf(data);
  if (packet.size() < kShortestPacket) {
    return Reject("Incorrect or short Netflow  Header \n");
  }
  if (policy_.fEnableShimTunnel) {
    RemoveShim(const_cast<std::uint8_t*>(ip_layer.data()), &packet);
  }
  ++datagrams_counted_;
  DoPeriodicWork(engine);
  return Decode({engine, flow::ExportSource(ip_layer), packet});
}

Status CPINetflowMeter::Reject(const char* reason) {
  last_error_ = reason;
  return kStatusFailed;
}

void CPINetflowMeter::DoPeriodicWork(IOmbrelStatsEngine* engine) {
  std::uint64_t now = 0;
  engine->GetCurrentTime(&now);
  const int dump_interval = policy_.TemplateDumpIntervalSeconds;
  if (dump_interval > 0 && static_cast<std::int64_t>(now - last_template_dump_) > dump_interval) {
    DumpTemplates();
    last_template_dump_ = now;
  }
  if (ConfigChecker.IsTimeToExecute(static_cast<unsigned int>(now))) ReloadPolicy();
  if (!policy_.HomeASNumbersFile.empty()) {
    home_as_feed_.Check(now, policy_.HomeASNumbersFile, site_, &policy_.HomeASSet);
  }
}

void CPINetflowMeter::ReloadPolicy() {
  Log(site_, kLogInformation, "CONFIGREFRESH:  Config file modified, reloading");
  const std::string path = ConfigChecker.File();  // the load replaces the checker
  if (!ReadConfiguration(path.c_str())) {
    Log(site_, kLogError,
        "CONFIGREFRESH: Unable to load netflow policy information from configuration");
  }
  Log(site_, kLogInformation, "CONFIGREFRESH:  Reloaded configuration file");
}

Status CPINetflowMeter::Decode(const Datagram& datagram) {
  context_.CurrentExportVersion = LoadBe16(datagram.packet.data());
  context_.FirstSwitchedSeen = 0;
  switch (context_.CurrentExportVersion) {
    case flow::kVersionNetflow1:
      return Process_v1(datagram);
    case flow::kVersionNetflow5:
      return Process_v5(datagram);
    case flow::kVersionNetflow9:
      return Process_v9(datagram);
    case flow::kVersionIpfix:
      return Process_v10(datagram);
    default:
      return Reject("Expecting Netflow Version 5 9 10 packet\n");
  }
}

void CPINetflowMeter::CountExportVolume(const Datagram& datagram) {
  if (!policy_.fMeterNetflowSources) return;
  datagram.engine->UpdateCounterKeyLen(COUNTERID_FLOWGEN, flow::kIpv4KeyLength,
                                       datagram.source.address_key.text,
                                       flow::exporters::kExportBytes, datagram.packet.size());
}

void CPINetflowMeter::ProcRecord(IOmbrelStatsEngine* engine, const nf5_record* rec,
                                 const nf5_header* hdr, const ip_header* ip,
                                 const ext_fields* ext) {
  metering_.ProcRecord(engine, site_, *rec, *hdr, *ip, *ext);
}

void CPINetflowMeter::DebugDumpSamplingRates() { rates_.Dump(stdout); }

void CPINetflowMeter::RateLearner::OnSamplingRate(std::uint32_t exporter, std::uint32_t rate) {
  meter_->rates_.Learn(be32::FromHost(exporter).AsStored(), static_cast<std::int32_t>(rate));
  meter_->SetSamplingRateKeyAttributes(meter_->engine_);
}
