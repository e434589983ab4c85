// Sends buffers as UDP datagrams to one IPv4 endpoint.
#ifndef KORVAIN_UDP_CLIENT_H_
#define KORVAIN_UDP_CLIENT_H_

#include <netinet/in.h>

#include "service_api/korvain/korvain_service_constant.h"
#include "service_api/korvain/korvain_service_log.h"

#pragma GCC visibility push(default)  // also where a project hides its own symbols

namespace KorvainService {

// One unconnected, non-blocking datagram socket and its destination. Never blocks, retries, splits
// or receives. Everything it logs, failures included, is at DEBUG. Not thread-safe; nothing is
// thrown.
class UDPClient {
 public:
  UDPClient() = default;
  ~UDPClient();
  UDPClient(const UDPClient&) = delete;
  UDPClient& operator=(const UDPClient&) = delete;

  // Opens the socket for `url`: six characters of scheme, skipped unseen, an IPv4 address in a form
  // that inet_aton takes, ':' and a port of 1 to 65535, the low 32 bits of what strtol reads,
  // behind which anything may follow. A socket that is open already is closed once the new URL has
  // been parsed. One that cannot be made non-blocking stays open until Fini or the next Init. The
  // logger is borrowed, may be null, and is taken also when the call fails.
  //
  // Returns 0; API_ERR_PARAMETER_INVALID for a null URL; GEN_ERR_ERR when the URL cannot be parsed
  // or no non-blocking socket can be had. After a failure the client is not to be used for Send
  // until an Init has succeeded.
  int Init(const char* url, Logger* logger);

  // Closes the socket. Calling it again is harmless.
  void Fini();

  // Sends `buf_len` bytes (1 to 65536, of which IPv4 carries at most 65507) as one datagram.
  //
  // Returns 0 when the kernel took the datagram, which says nothing about its arrival;
  // API_ERR_PARAMETER_INVALID for a null buffer or a length below 1; GEN_ERR_ERR when the buffer is
  // too large or cannot be sent at once, and when there is no socket.
  int Send(const char* buf, int buf_len);

  // The URL of the last Init that succeeded, its first 127 characters, empty before one; valid
  // until the next Init. It is kept after Fini.
  const char* GetUrl() const { return m_url; }

  // Whether the network's answers to sent datagrams (ICMP: port, host or network unreachable) are
  // to be kept for TakePendingError; one that has not been taken fails the next Send. A Send then
  // also fails when the queue of the network device is full, which the kernel otherwise keeps to
  // itself. Off at the start. Holds for the socket that is open and for those of each later Init.
  // Failing to tell a socket is logged and changes nothing else. Switched off, it drops an answer
  // that is still pending.
  void SetNoticeUnreachable(bool is_noticing);

  // The errno that is pending on the socket, mostly of an answer of the network, and clears it; 0
  // when there is none, when the client is closed, and when answers are not noticed.
  int TakePendingError();

 private:
  int ParseURL(const char* url);
  void TellSocketWhatToNotice(const char* operation);

  char m_url[MAX_URL_LENGTH_FOR_STATISTIC] = {};  // for log lines; empty until Init has succeeded
  int m_sock = -1;                                // -1 when there is none
  sockaddr_in m_sock_addr = {};
  bool m_is_noticing = false;
  Logger* m_logger = nullptr;  // borrowed
};

}  // namespace KorvainService

#pragma GCC visibility pop

#endif  // KORVAIN_UDP_CLIENT_H_
