// Sending a report to a socket on loopback that nobody reads, beside a bare sendto.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

#include "service_api/korvain_service_statistic.h"

namespace bench {
namespace {

constexpr int REPORT_SIZE = 1400;

class Receiver {
 public:
  Receiver() {
    m_address.sin_family = AF_INET;
    m_address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(m_address);
    auto* const address = reinterpret_cast<sockaddr*>(&m_address);
    if (bind(m_socket, address, length) != 0 || getsockname(m_socket, address, &length) != 0) {
      throw std::runtime_error("no receiver");
    }
  }
  ~Receiver() { close(m_socket); }
  Receiver(const Receiver&) = delete;
  Receiver& operator=(const Receiver&) = delete;

  const sockaddr_in& Address() const { return m_address; }
  std::string Url() const { return "udp://127.0.0.1:" + std::to_string(ntohs(m_address.sin_port)); }

 private:
  int m_socket = socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in m_address{};
};

void BM_Send(benchmark::State& state) {
  const Receiver receiver;
  const std::string report(REPORT_SIZE, 'r');
  const std::string url = receiver.Url();
  const char* urls[] = {url.c_str()};
  KorvainService::UDPClientMgr channel;
  channel.Init(nullptr);
  channel.AddCollectServerAddress(urls, 1);
  for (auto _ : state) {
    if (channel.Send(report.data(), REPORT_SIZE) != 0) {
      state.SkipWithError("a send failed");
      break;
    }
  }
}

void BM_BareSendto(benchmark::State& state) {
  const Receiver receiver;
  const std::string report(REPORT_SIZE, 'r');
  const int fd = socket(AF_INET, SOCK_DGRAM, 0);
  fcntl(fd, F_SETFL, O_NONBLOCK | O_ASYNC);  // as ours
  for (auto _ : state) {
    if (sendto(fd, report.data(), REPORT_SIZE, 0,
               reinterpret_cast<const sockaddr*>(&receiver.Address()), sizeof(sockaddr_in)) < 0) {
      state.SkipWithError("a send failed");
      break;
    }
  }
  close(fd);
}

BENCHMARK(BM_Send);
BENCHMARK(BM_BareSendto);

}  // namespace
}  // namespace bench
