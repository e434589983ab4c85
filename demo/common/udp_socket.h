// IPv4 UDP endpoints, written udp://a.b.c.d:port, and a non-blocking socket.
#ifndef KORVAIN_DEMO_UDP_SOCKET_H_
#define KORVAIN_DEMO_UDP_SOCKET_H_

#include <netinet/in.h>

#include <cstddef>
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
  std::string_view bytes;  // valid until the next one is received
};

class UdpSocket {
 public:
  static constexpr size_t MOST_BYTES = 65507;  // in a datagram, over IPv4

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

  // Calls `take` with each datagram that is waiting, at most so many of them: a flood cannot keep
  // the caller. Throws std::runtime_error when the socket fails.
  template <class Take>
  void TakeWaiting(const Take& take, int most = 256) {
    for (; most > 0; --most) {
      const std::optional<Datagram> datagram = Receive();
      if (!datagram) return;
      take(*datagram);
    }
  }

 private:
  std::optional<Datagram> Receive();

  const int m_fd;
  std::vector<char> m_buffer;
};

}  // namespace demo

#endif  // KORVAIN_DEMO_UDP_SOCKET_H_
