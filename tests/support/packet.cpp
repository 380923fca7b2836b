// SPDX-License-Identifier: Apache-2.0
#include "tests/support/packet.h"

#include <algorithm>
#include <string>

#include "flowhandlers/identifiers.h"
#include "tests/support/host_object.h"

namespace flow::test {

Bytes UdpHeaders(const Exporter& exporter, std::size_t payload_size) {
  const std::size_t udp_length = 8 + payload_size;
  const auto low16 = [](std::size_t number) { return static_cast<std::uint16_t>(number); };
  Wire wire;
  wire.U8(0x45).U8(0).U16(low16(20 + udp_length)).Zeros(4).U8(64).U8(17).Zeros(2);
  wire.Ip(exporter.address).Ip("192.0.2.250");
  wire.U16(exporter.port).U16(2055).U16(low16(udp_length)).Zeros(2);
  return wire.Get();
}

namespace {

class Layer final : public HostObject<IOmbrelProtData> {
 public:
  Layer(HostTrace* trace, std::span<std::uint8_t> bytes, IOmbrelParseContext* context)
      : HostObject(trace, "the packet data"), bytes_(bytes), context_(context) {}

  Status GetBuffer(const std::uint8_t** data, std::uint32_t* length) override {
    Status status = kStatusOk;
    if (trace().Failure("GetBuffer", &status)) return status;
    *data = bytes_.data();
    *length = static_cast<std::uint32_t>(bytes_.size());
    return status;
  }

  Status GetParseContext(IOmbrelParseContext** context) override {
    *context = nullptr;
    Status status = kStatusOk;
    if (!trace().Failure("GetParseContext", &status)) *context = context_;
    return status;
  }

 private:
  std::span<std::uint8_t> bytes_;
  IOmbrelParseContext* context_;
};

class Context final : public HostObject<IOmbrelParseContext> {
 public:
  explicit Context(HostTrace* trace) : HostObject(trace, "the parse context") {}

  void SetLayers(IOmbrelProtData* ip, IOmbrelProtData* udp) {
    ip_ = ip;
    udp_ = udp;
  }

  Status GetProtData(const IID& protocol, IOmbrelProtData** data) override {
    trace().Query("GetProtData", protocol);
    *data = nullptr;
    Status status = kStatusOk;
    if (trace().Failure("GetProtData", &status)) return status;
    if (protocol == UPID_IP) *data = ip_;
    if (protocol == UPID_UDP) *data = udp_;
    return status;
  }

  Status SetParsedLength(std::uint32_t length) override {
    trace().Call("SetParsedLength", length);
    Status status = kStatusOk;
    trace().Failure("SetParsedLength", &status);
    return status;
  }

 private:
  IOmbrelProtData* ip_ = nullptr;
  IOmbrelProtData* udp_ = nullptr;
};

}  // namespace

struct Packet::Layers {
  Layers(HostTrace* trace_in, std::span<const std::uint8_t> headers,
         std::span<const std::uint8_t> payload)
      : trace(trace_in),
        header_size(headers.size()),
        size(headers.size() + payload.size()),
        block(new std::uint8_t[size]),
        context(trace),
        ip(trace, {block.get(), size}, &context),
        udp(trace, {block.get() + header_size, payload.size()}, &context) {
    std::ranges::copy(headers, block.get());
    std::ranges::copy(payload, block.get() + header_size);
    original.assign(block.get(), block.get() + size);
    context.SetLayers(header_size == 0 ? nullptr : &ip, &udp);
  }

  HostTrace* trace;
  std::size_t header_size;
  std::size_t size;
  std::unique_ptr<std::uint8_t[]> block;
  Bytes original;
  test::Context context;
  Layer ip;
  Layer udp;
};

Packet::Packet(HostTrace* trace, std::span<const std::uint8_t> headers,
               std::span<const std::uint8_t> payload)
    : layers_(std::make_unique<Layers>(trace, headers, payload)) {}

Packet::~Packet() = default;

IOmbrelProtData* Packet::Payload() const { return &layers_->udp; }

IOmbrelParseContext* Packet::Context() const { return &layers_->context; }

std::uint8_t* Packet::Headers() const {
  return layers_->header_size == 0 ? nullptr : layers_->block.get();
}

void Packet::CheckUntouched() const {
  for (std::size_t i = 0; i < layers_->size; ++i) {
    const bool source_address = i < layers_->header_size && i >= 12 && i < 16;
    if (!source_address && layers_->block[i] != layers_->original[i]) {
      layers_->trace->Fault("byte " + std::to_string(i) + " of the packet has been changed");
      return;
    }
  }
}

}  // namespace flow::test
