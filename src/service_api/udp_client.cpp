#include "service_api/udp_client.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "common/korvain_error_code.h"
#include "service_api/detail/log.h"
#include "service_api/detail/text.h"

namespace KorvainService {

namespace {

constexpr int MAX_PKG_SIZE_TO_SEND_THROUGH_UDP = 65536;
constexpr int32_t MAX_PORT = 65535;

// Asking clears it.
int PendingErrorOf(int sock) {
  int error = 0;
  socklen_t length = sizeof(error);
  return getsockopt(sock, SOL_SOCKET, SO_ERROR, &error, &length) == 0 ? error : 0;
}

}  // namespace

UDPClient::~UDPClient() {
  Fini();
}

int UDPClient::Init(const char* url, Logger* logger) {
  m_logger = logger;
  if (url == nullptr) {
    return KORVAIN_FAIL(API_ERR_PARAMETER_INVALID, m_logger, KORVAIN_LOG_LEVEL_DEBUG,
                        "NULL == url");
  }
  if (ParseURL(url) != 0) {
    return KORVAIN_FAIL(GEN_ERR_ERR, m_logger, KORVAIN_LOG_LEVEL_DEBUG, "ParseURL() failed. url:%s",
                        url);
  }

  Fini();
  m_sock = socket(AF_INET, SOCK_DGRAM, 0);
  if (m_sock < 0) {
    const int error = errno;
    return KORVAIN_FAIL(GEN_ERR_ERR, m_logger, KORVAIN_LOG_LEVEL_DEBUG,
                        "socket() failed. errno:%d, errstr:%s, url:%s", error, strerror(error),
                        url);
  }
  const int flags = fcntl(m_sock, F_GETFL);
  if (fcntl(m_sock, F_SETFL, flags | O_NONBLOCK | O_ASYNC) != 0) {
    const int error = errno;
    return KORVAIN_FAIL(GEN_ERR_ERR, m_logger, KORVAIN_LOG_LEVEL_DEBUG,
                        "set socket option -- nonblock failed! url=%s, errno=%d, errstr=%s", url,
                        error, strerror(error));
  }
  detail::CopyText(m_url, url);
  if (m_is_noticing) TellSocketWhatToNotice(__func__);
  return 0;
}

void UDPClient::SetNoticeUnreachable(bool is_noticing) {
  if (m_is_noticing == is_noticing) return;
  m_is_noticing = is_noticing;
  if (m_sock < 0) return;
  TellSocketWhatToNotice(__func__);
  if (!m_is_noticing) PendingErrorOf(m_sock);  // it would fail a Send
}

// The kernel passes ICMP errors on to an unconnected socket only where IP_RECVERR is set.
void UDPClient::TellSocketWhatToNotice(const char* operation) {
  const int value = m_is_noticing ? 1 : 0;
  if (setsockopt(m_sock, IPPROTO_IP, IP_RECVERR, &value, sizeof(value)) != 0) {
    const int error = errno;
    KORVAIN_LOG_AS(operation, m_logger, KORVAIN_LOG_LEVEL_DEBUG,
                   "set socket option -- recverr failed! url=%s, errno=%d, errstr=%s", m_url, error,
                   strerror(error));
  }
}

int UDPClient::TakePendingError() {
  return m_is_noticing && m_sock >= 0 ? PendingErrorOf(m_sock) : 0;
}

void UDPClient::Fini() {
  if (m_sock < 0) return;
  close(m_sock);
  m_sock = -1;
}

int UDPClient::Send(const char* buf, int buf_len) {
  if (buf_len <= 0 || buf == nullptr) {
    return KORVAIN_FAIL(API_ERR_PARAMETER_INVALID, m_logger, KORVAIN_LOG_LEVEL_DEBUG,
                        "NULL == buf || buf_len(%d) <= 0", buf_len);
  }
  if (buf_len > MAX_PKG_SIZE_TO_SEND_THROUGH_UDP) {
    return KORVAIN_FAIL(
        GEN_ERR_ERR, m_logger, KORVAIN_LOG_LEVEL_DEBUG,
        "the send buf size(%d) is greater than MAX_PKG_SIZE_TO_SEND_THROUGH_UDP(%d)", buf_len,
        MAX_PKG_SIZE_TO_SEND_THROUGH_UDP);
  }
  if (sendto(m_sock, buf, static_cast<size_t>(buf_len), 0,
             reinterpret_cast<const sockaddr*>(&m_sock_addr), sizeof(m_sock_addr)) < 0) {
    return KORVAIN_FAIL(GEN_ERR_ERR, m_logger, KORVAIN_LOG_LEVEL_DEBUG,
                        "sendto() failed. buf_len:%d, url:%s, sock fd:%d", buf_len, m_url, m_sock);
  }
  KORVAIN_LOG(m_logger, KORVAIN_LOG_LEVEL_DEBUG, "it send success. send buf len:%d, url:%s",
              buf_len, m_url);
  return 0;
}

int UDPClient::ParseURL(const char* url) {
  if (url == nullptr) {
    return KORVAIN_FAIL(API_ERR_PARAMETER_INVALID, m_logger, KORVAIN_LOG_LEVEL_DEBUG,
                        "NULL == url");
  }
  if (strnlen(url, detail::SCHEME_LENGTH) < detail::SCHEME_LENGTH) {
    return KORVAIN_FAIL(GEN_ERR_ERR, m_logger, KORVAIN_LOG_LEVEL_DEBUG,
                        "parse url failed -- url is too short, url=%s\n", url);
  }
  const char* const host = detail::SkipScheme(url);
  const char* const colon = strchr(host, ':');
  if (colon == nullptr) {
    return KORVAIN_FAIL(GEN_ERR_ERR, m_logger, KORVAIN_LOG_LEVEL_DEBUG,
                        "parse url failed -- no port in url, url=%s\n", url);
  }

  // A host that does not fit is no address.
  char address[MAX_URL_LENGTH_FOR_STATISTIC];
  const auto length = static_cast<size_t>(colon - host);
  int converted = 0;
  if (length < sizeof(address)) {
    detail::CopyText(address, length + 1, host);
    converted = inet_aton(address, &m_sock_addr.sin_addr);
  }
  if (converted == 0) {
    return KORVAIN_FAIL(GEN_ERR_ERR, m_logger, KORVAIN_LOG_LEVEL_DEBUG,
                        "parse url failed -- aton(ip), url=%s, iret=%d\n", url, converted);
  }

  const auto port = static_cast<int32_t>(strtol(colon + 1, nullptr, 10));
  if (port <= 0 || port > MAX_PORT) {
    return KORVAIN_FAIL(GEN_ERR_ERR, m_logger, KORVAIN_LOG_LEVEL_DEBUG,
                        "parse url failed -- atoi(port), url=%s, iret=%d\n", url, port);
  }
  m_sock_addr.sin_family = AF_INET;
  m_sock_addr.sin_port = htons(static_cast<uint16_t>(port));
  return 0;
}

}  // namespace KorvainService
