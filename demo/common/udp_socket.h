// IPv4 UDP endpoints, written udp://a.b.c.d:port, and a non-blocking socket.
#ifndef KORVAIN_DEMO_UDP_SOCKET_H_
#define KORVAIN_DEMO_UDP_SOCKET_H_

#include <netinet/in.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace demo {

// Whether port 0, which stands for any free port where something listens, is fine.
enum class PortRule { GIVEN, OR_ZERO };

// Nothing but "udp://", four decimal numbers, ':' and a port of 1 to 65535 is an endpoint.
std::optional<sockaddr_in> ParseUdpUrl(std::string_view url, PortRule rule = PortRule::GIVEN);

std::string ToUrl(const sockaddr_in& endpoint);

struct Datagram {
  sockaddr_in from;
  std::string_view bytes;  // valid until the next Receive
};

class UdpSocket {
 public:
  // Bound to `local`, or to a port that the kernel chooses. Throws std::runtime_error.
  explicit UdpSocket(const std::optional<sockaddr_in>& local);
  ~UdpSocket();
  UdpSocket(const UdpSocket&) = delete;
  UdpSocket& operator=(const UdpSocket&) = delete;

  int fd() const { return m_fd; }

  // Where it receives.
  std::string LocalUrl() const;

  // Whether the kernel took the datagram.
  bool Send(std::string_view bytes, const sockaddr_in& to) const;

  // The next datagram that is waiting, if any. Throws std::runtime_error when the socket fails.
  std::optional<Datagram> Receive();

 private:
  int m_fd;
  std::vector<char> m_buffer;
};

}  // namespace demo

#endif  // KORVAIN_DEMO_UDP_SOCKET_H_
