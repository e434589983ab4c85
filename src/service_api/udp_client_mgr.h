// The channel to the collect servers.
#ifndef KORVAIN_UDP_CLIENT_MGR_H_
#define KORVAIN_UDP_CLIENT_MGR_H_

#include <cstdint>

#include "service_api/korvain/korvain_service_constant.h"
#include "service_api/korvain/korvain_service_log.h"
#include "service_api/udp_client.h"

#pragma GCC visibility push(default)  // also where a project hides its own symbols

namespace KorvainService {

// Keeps one UDPClient open to one of up to 32 collect servers. The first is chosen at random; a
// failed send closes the client, and each Update then tries one server, in turn from the first of
// the list.
//
// UDP tells nobody whether a datagram arrives. What fails a send by itself is local: no route, a
// full socket buffer, a report of more than 65507 bytes. A server that has gone is noticed only
// with SetNoticeUnreachable, and only when the network says so.
//
// Everything it logs, failures included, is at DEBUG. Not thread-safe; nothing is thrown.
class UDPClientMgr {
 public:
  UDPClientMgr() = default;
  ~UDPClientMgr() = default;
  UDPClientMgr(const UDPClientMgr&) = delete;
  UDPClientMgr& operator=(const UDPClientMgr&) = delete;

  // Takes the logger, which is borrowed and may be null, closes the client, forgets all servers and
  // seeds the process-wide generator of rand() with the time. Whose turn it is in Update is kept,
  // and so is SetNoticeUnreachable. Returns 0.
  int Init(Logger* logger);

  // Replaces the list of servers by the first 32 valid ones among `count` URLs, and closes the
  // client. Then tries to open it on each of them once, from one chosen with rand() onward, until
  // one opens. With a count of 0 nothing changes; with a negative count or a null list no server is
  // left.
  //
  // A valid URL is made of "udp://", four decimal numbers of at most three digits and at most 255
  // joined by dots, ':' and a decimal port of at most five digits and at most 65535; behind the
  // prefix it has fewer than 128 characters. The texts are copied; invalid ones are logged and left
  // out. Port 0 and repeated separators pass here but cannot be opened, and a number with a leading
  // zero is opened as octal.
  void AddCollectServerAddress(const char** collect_server_url, int32_t count);

  // Sends one report as one datagram; see UDPClient::Send for sizes.
  //
  // Returns 0 when the kernel took the datagram; GEN_ERR_ERR, without any system call, while the
  // client is closed; else the failure of UDPClient::Send, arguments refused included: the report
  // is lost then, and the client closed until an Update opens it again.
  int Send(const char* buff, int buff_len);

  // To be called over and over: tries to open a closed client on the next server of the list. The
  // first turn is that of the first server, whichever was chosen at random, even if it has just
  // failed; one turn later it is the next one's. See SetNoticeUnreachable for what it does more.
  void Update();

  // The URL of the collect server in use, or null while the client is closed. Valid until the next
  // call of another operation.
  const char* GetCurrentUrl() const;

  // Closes the client; the next Update begins with the server after the one left, in the order of
  // the list. For a service API that knows better than UDP. No effect while the client is closed.
  void LeaveCurrentServer();

  // Whether a server that has gone is to be noticed when the network says so (ICMP: port, host or
  // network unreachable). Off at the start, and kept until it is set again.
  //
  // When on, Update asks an open client for such an answer, which costs one system call, and when
  // there is one, closes it and tries the next server in the same call. An answer may also come
  // first to a Send, which it fails, and so does a full queue of the network device, which the
  // kernel otherwise keeps to itself. After every loss of the server (by Update, Send or
  // LeaveCurrentServer) the turn begins with the server after the one lost, which so comes last.
  // What is sent before the answer is lost: up to the next Update after a server on this host has
  // ended, or for a round trip to another host. A Send that takes the answer itself closes the
  // client, and what follows is lost up to the next Update. So call Update before each datagram.
  //
  // Not noticed, since nobody answers: a host beyond the local network that is silently gone, a
  // firewall that drops, a server that hangs with its socket open.
  void SetNoticeUnreachable(bool is_noticing);

 private:
  void CollectValidUrls(const char** collect_server_url, int32_t count);
  void CloseClient();
  void LeaveUnreachableServer();
  void OpenClientFromRandomStart();

  UDPClient m_udp_client;
  int m_url_count = 0;
  char m_url[STATISTIC_MAX_COLLECT_COUNT][MAX_URL_LENGTH_FOR_STATISTIC];
  bool m_is_already_init_udp_client = false;
  int m_begin_index = 0;    // of the URL that the next Update tries
  int m_current_index = 0;  // of the URL in use, while the client is open
  bool m_is_noticing = false;
  Logger* m_logger = nullptr;  // borrowed
};

}  // namespace KorvainService

#pragma GCC visibility pop

#endif  // KORVAIN_UDP_CLIENT_MGR_H_
