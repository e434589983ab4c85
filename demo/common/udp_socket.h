// IPv4 UDP endpoints, written udp://a.b.c.d:port, and a non-blocking socket.
#ifndef KORVAIN_DEMO_UDP_SOCKET_H_
#define KORVAIN_DEMO_UDP_SOCKET_H_

#include <netinet/in.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace demo {

// Nothing but "udp://", four decimal numbers, ':' and a port of 1 to 65535 is an endpoint.
std::optional<sockaddr_in> ParseUdpUrl(const std::string& url);

std::string ToUrl(const sockaddr_in& endpoint);

struct Datagram {
  sockaddr_in from;
  std::string_view bytes;  // valid until the next Receive
};

class UdpSocket {
 public:
  // Listens on that port of the loopback interface, 0 for a free one; without a port it can send,
  // and be answered. The receive buffer, in bytes, has room for a burst that comes while the
  // process waits for its turn; the kernel may grant less. Throws std::runtime_error.
  explicit UdpSocket(std::optional<uint16_t> loopback_port, int receive_buffer = 1 << 20);
  ~UdpSocket();
  UdpSocket(const UdpSocket&) = delete;
  UdpSocket& operator=(const UdpSocket&) = delete;

  // Where it listens.
  std::string LocalUrl() const;

  // Whether the kernel took the datagram.
  bool Send(std::string_view bytes, const sockaddr_in& to) const;

  // Returns early when a datagram comes.
  void Wait(int timeout_ms) const;

  // The next datagram that is waiting, if any. Throws std::runtime_error when the socket fails.
  std::optional<Datagram> Receive();

 private:
  const int m_fd;
  std::vector<char> m_buffer;
};

}  // namespace demo

#endif  // KORVAIN_DEMO_UDP_SOCKET_H_
