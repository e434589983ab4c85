#include "demo/common/udp_socket.h"

#include <arpa/inet.h>
#include <fmt/core.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <stdexcept>

namespace demo {

namespace {

constexpr std::string_view SCHEME = "udp://";

// Room for a burst that comes while the process waits for its turn; the kernel may grant less.
constexpr int RECEIVE_BUFFER_SIZE = 1 << 20;

// Most bytes that one UDP datagram carries over IPv4.
constexpr size_t MOST_BYTES = 65507;

std::optional<uint16_t> ParsePort(std::string_view text, PortRule rule) {
  uint16_t port = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, port);
  if (error != std::errc() || stop != end || text.size() > 5) return std::nullopt;
  if (port == 0 && rule == PortRule::GIVEN) return std::nullopt;
  return port;
}

}  // namespace

std::optional<sockaddr_in> ParseUdpUrl(std::string_view url, PortRule rule) {
  const size_t colon = url.rfind(':');
  if (url.substr(0, SCHEME.size()) != SCHEME || colon < SCHEME.size()) return std::nullopt;
  const std::string host(url.substr(SCHEME.size(), colon - SCHEME.size()));
  const std::optional<uint16_t> port = ParsePort(url.substr(colon + 1), rule);
  sockaddr_in endpoint{};
  endpoint.sin_family = AF_INET;
  // A NUL byte would end the address early for inet_pton.
  if (!port || host.find('\0') != std::string::npos ||
      inet_pton(AF_INET, host.c_str(), &endpoint.sin_addr) != 1) {
    return std::nullopt;
  }
  endpoint.sin_port = htons(*port);
  return endpoint;
}

std::string ToUrl(const sockaddr_in& endpoint) {
  char host[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &endpoint.sin_addr, host, sizeof(host));
  return fmt::format("{}{}:{}", SCHEME, host, ntohs(endpoint.sin_port));
}

UdpSocket::UdpSocket(const std::optional<sockaddr_in>& local)
    : m_fd(socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)), m_buffer(MOST_BYTES) {
  if (m_fd < 0) throw std::runtime_error(fmt::format("no UDP socket: {}", strerror(errno)));
  setsockopt(m_fd, SOL_SOCKET, SO_RCVBUF, &RECEIVE_BUFFER_SIZE, sizeof(RECEIVE_BUFFER_SIZE));
  if (!local) return;
  if (bind(m_fd, reinterpret_cast<const sockaddr*>(&*local), sizeof(*local)) != 0) {
    const int error = errno;
    close(m_fd);
    throw std::runtime_error(
        fmt::format("cannot listen on {}: {}", ToUrl(*local), strerror(error)));
  }
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

std::optional<Datagram> UdpSocket::Receive() {
  Datagram datagram{};
  socklen_t from_size = sizeof(datagram.from);
  const ssize_t size = recvfrom(m_fd, m_buffer.data(), m_buffer.size(), 0,
                                reinterpret_cast<sockaddr*>(&datagram.from), &from_size);
  if (size < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) return std::nullopt;
  if (size < 0) throw std::runtime_error(fmt::format("receiving failed: {}", strerror(errno)));
  datagram.bytes = std::string_view(m_buffer.data(), static_cast<size_t>(size));
  return datagram;
}

}  // namespace demo
