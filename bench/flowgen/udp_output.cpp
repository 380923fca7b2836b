// SPDX-License-Identifier: Apache-2.0
#include <arpa/inet.h>
#include <fmt/format.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <thread>
#include <vector>

#include "bench/flowgen/output.h"

namespace flow::gen {
namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void Fail(const char* what) {
  throw std::runtime_error(fmt::format("{}: {}", what, std::strerror(errno)));
}

// A socket per exporter may be more than a process usually has.
void AllowOpenFiles(std::uint32_t count) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  const rlim_t wanted = count + rlim_t{64};
  if (limit.rlim_cur >= wanted) return;
  limit.rlim_cur = std::min(wanted, limit.rlim_max);
  setrlimit(RLIMIT_NOFILE, &limit);
}

class UdpOutput : public Output {
 public:
  explicit UdpOutput(const Options& options) : rate_(options.rate), start_(Clock::now()) {
    AllowOpenFiles(options.exporters);
    for (std::uint32_t i = 0; i < options.exporters; ++i) {
      Connect(LoopbackAddress(i), options.send_to, options.PortOf(options.FormatOf(i)));
    }
    messages_.resize(options.batch);
    parts_.resize(options.batch);
  }
  ~UdpOutput() override {
    for (const int socket : sockets_) close(socket);
  }
  UdpOutput(const UdpOutput&) = delete;
  UdpOutput& operator=(const UdpOutput&) = delete;

  void Put(std::uint32_t exporter, std::span<const Datagram> datagrams) override {
    for (std::size_t i = 0; i < datagrams.size(); ++i) {
      // The kernel only reads from what an iovec points to.
      parts_[i] = {const_cast<std::uint8_t*>(datagrams[i].payload.data()), datagrams[i].size};
      messages_[i] = {};
      messages_[i].msg_hdr.msg_iov = &parts_[i];
      messages_[i].msg_hdr.msg_iovlen = 1;
    }
    Send(sockets_[exporter], std::span(messages_).first(datagrams.size()));
    sent_ += datagrams.size();
    if (rate_ != 0) KeepRate();
  }

  // Finish waits for nothing; it asks each socket for the report on the last datagram.
  void Finish() override {
    for (const int socket : sockets_) {
      int error = 0;
      socklen_t size = sizeof error;
      getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size);
      if (error != 0) ++errors_;
    }
  }

  [[nodiscard]] std::uint64_t SendErrors() const override { return errors_; }

 private:
  void Connect(std::uint32_t from_address, std::uint32_t to_address, std::uint16_t port) {
    const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (socket < 0) Fail("no socket for another exporter");
    sockets_.push_back(socket);
    sockaddr_in from{};
    from.sin_family = AF_INET;
    from.sin_addr.s_addr = htonl(from_address);
    if (bind(socket, reinterpret_cast<const sockaddr*>(&from), sizeof from) != 0) {
      Fail("no address for another exporter");
    }
    sockaddr_in to = from;
    to.sin_port = htons(port);
    to.sin_addr.s_addr = htonl(to_address);
    if (connect(socket, reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0) {
      Fail("the destination cannot be reached");
    }
  }

  // What a connected socket reports in place of sending is that an earlier datagram found nobody
  // listening; asking again sends.
  void Send(int socket, std::span<mmsghdr> messages) {
    while (!messages.empty()) {
      const int sent = sendmmsg(socket, messages.data(), static_cast<unsigned>(messages.size()), 0);
      if (sent >= 0) {
        messages = messages.subspan(static_cast<std::size_t>(sent));
      } else if (errno == ECONNREFUSED) {
        ++errors_;
      } else if (errno == ENOBUFS || errno == EAGAIN) {
        std::this_thread::sleep_for(std::chrono::microseconds(100));
      } else if (errno != EINTR) {
        Fail("sending failed");
      }
    }
  }

  void KeepRate() const {
    const std::chrono::duration<double> due(static_cast<double>(sent_) / rate_);
    std::this_thread::sleep_until(start_ + std::chrono::duration_cast<Clock::duration>(due));
  }

  std::vector<int> sockets_;
  std::vector<mmsghdr> messages_;
  std::vector<iovec> parts_;
  std::uint32_t rate_;
  Clock::time_point start_;
  std::uint64_t sent_ = 0;
  std::uint64_t errors_ = 0;
};

}  // namespace

std::unique_ptr<Output> NewUdpOutput(const Options& options) {
  return std::make_unique<UdpOutput>(options);
}

}  // namespace flow::gen
