#include "demo/common/udp_socket.h"

#include <arpa/inet.h>
#include <fmt/core.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace demo {

// What is not written as ToUrl would write it is something else, such as a port of 70000.
std::optional<sockaddr_in> ParseUdpUrl(const std::string& url) {
  char host[INET_ADDRSTRLEN] = "";
  unsigned port = 0;
  std::sscanf(url.c_str(), "udp://%15[0-9.]:%5u", host, &port);
  sockaddr_in endpoint{};
  endpoint.sin_family = AF_INET;
  endpoint.sin_port = htons(static_cast<uint16_t>(port));
  if (inet_pton(AF_INET, host, &endpoint.sin_addr) != 1 || port == 0) return std::nullopt;
  return ToUrl(endpoint) == url ? std::optional(endpoint) : std::nullopt;
}

std::string ToUrl(const sockaddr_in& endpoint) {
  char host[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &endpoint.sin_addr, host, sizeof(host));
  return fmt::format("udp://{}:{}", host, ntohs(endpoint.sin_port));
}

UdpSocket::UdpSocket(std::optional<uint16_t> loopback_port, int receive_buffer)
    : m_fd(socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)), m_buffer(MOST_BYTES) {
  if (m_fd < 0) throw std::runtime_error(fmt::format("no UDP socket: {}", strerror(errno)));
  setsockopt(m_fd, SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof(receive_buffer));
  if (!loopback_port) return;
  sockaddr_in local{};
  local.sin_family = AF_INET;
  local.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  local.sin_port = htons(*loopback_port);
  if (bind(m_fd, reinterpret_cast<const sockaddr*>(&local), sizeof(local)) == 0) return;
  const int error = errno;
  close(m_fd);
  throw std::runtime_error(fmt::format("cannot listen on {}: {}", ToUrl(local), strerror(error)));
}

UdpSocket::~UdpSocket() {
  close(m_fd);
}

std::string UdpSocket::LocalUrl() const {
  sockaddr_in local{};
  socklen_t size = sizeof(local);
  getsockname(m_fd, reinterpret_cast<sockaddr*>(&local), &size);
  return ToUrl(local);
}

bool UdpSocket::Send(std::string_view bytes, const sockaddr_in& to) const {
  return sendto(m_fd, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to),
                sizeof(to)) >= 0;
}

void UdpSocket::Wait(int timeout_ms) const {
  pollfd input{m_fd, POLLIN, 0};
  poll(&input, 1, timeout_ms);
}

std::optional<Datagram> UdpSocket::Receive() {
  Datagram datagram{};
  socklen_t from_size = sizeof(datagram.from);
  const ssize_t size = recvfrom(m_fd, m_buffer.data(), m_buffer.size(), 0,
                                reinterpret_cast<sockaddr*>(&datagram.from), &from_size);
  if (size < 0 && (errno == EAGAIN || errno == EINTR)) return std::nullopt;
  if (size < 0) throw std::runtime_error(fmt::format("receiving failed: {}", strerror(errno)));
  datagram.bytes = std::string_view(m_buffer.data(), static_cast<size_t>(size));
  return datagram;
}

}  // namespace demo
