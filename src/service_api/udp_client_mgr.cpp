#include "service_api/udp_client_mgr.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "common/korvain_error_code.h"
#include "service_api/detail/log.h"
#include "service_api/detail/text.h"

namespace KorvainService {

namespace {

constexpr char ADD_COLLECT_SERVER_ADDRESS[] = "AddCollectServerAddress";  // its steps' operation

constexpr char URL_PREFIX[] = "udp://";
constexpr size_t URL_PREFIX_LENGTH = sizeof(URL_PREFIX) - 1;
static_assert(URL_PREFIX_LENGTH == detail::SCHEME_LENGTH, "the client skips what is checked here");
constexpr size_t MAX_PORT_LEN = 5;
constexpr size_t MAX_IP_PART_LEN = 3;

// Whether `text` is 1 to `max_length` decimal digits with a value of at most `max_value`.
bool IsNumber(const char* text, size_t max_length, long max_value) {
  const size_t length = strlen(text);
  return length > 0 && length <= max_length && strspn(text, "0123456789") == length &&
         strtol(text, nullptr, 10) <= max_value;
}

// Runs of dots count as one separator. The client's own parsing refuses what that lets pass.
bool CheckIP(const char* ip) {
  constexpr int PART_COUNT = 4;
  char text[256];
  detail::CopyText(text, ip);
  char* rest = nullptr;
  const char* part = strtok_r(text, ".", &rest);
  for (int i = 0; i < PART_COUNT; ++i) {
    if (part == nullptr || !IsNumber(part, MAX_IP_PART_LEN, 255)) return false;
    part = strtok_r(nullptr, ".", &rest);
  }
  return part == nullptr;
}

bool CheckPort(const char* port) {
  return IsNumber(port, MAX_PORT_LEN, 65535);
}

// Whether `url` is "udp://", a dotted IPv4 address, ':' and a port, where a run of separators
// counts as one. Says at DEBUG what is wrong, except for a null URL and one with 128 characters or
// more behind the prefix.
bool CheckURL(const char* url, Logger* logger) {
  if (url == nullptr) return false;
  if (strncmp(url, URL_PREFIX, URL_PREFIX_LENGTH) != 0) {
    return KORVAIN_FAIL(false, logger, KORVAIN_LOG_LEVEL_DEBUG,
                        "the url is invalid, not include \"udp://\", url:%s", url);
  }

  // A text that does not fit is refused rather than judged on a part of it.
  char text[MAX_URL_LENGTH_FOR_STATISTIC];
  if (strlen(url + URL_PREFIX_LENGTH) >= sizeof(text)) return false;
  detail::CopyText(text, url + URL_PREFIX_LENGTH);

  constexpr char SEPARATOR[] = ":";
  char* rest = nullptr;
  const char* const ip = strtok_r(text, SEPARATOR, &rest);
  if (ip == nullptr) {
    return KORVAIN_FAIL(false, logger, KORVAIN_LOG_LEVEL_DEBUG, "strtok(%s, %s) failed, url:%s",
                        text, SEPARATOR, url);
  }
  const char* const port = strtok_r(nullptr, SEPARATOR, &rest);
  if (port == nullptr) {
    return KORVAIN_FAIL(false, logger, KORVAIN_LOG_LEVEL_DEBUG,
                        "the url is invalid, not include \"%s\", url:%s", SEPARATOR, url);
  }
  if (strtok_r(nullptr, SEPARATOR, &rest) != nullptr) {
    return KORVAIN_FAIL(false, logger, KORVAIN_LOG_LEVEL_DEBUG,
                        "the url is invalid, include \"%s\" more than one, url:%s", SEPARATOR, url);
  }

  if (!CheckIP(ip)) {
    return KORVAIN_FAIL(false, logger, KORVAIN_LOG_LEVEL_DEBUG, "the ip is invalid, ip:%s, url:%s",
                        ip, url);
  }
  if (!CheckPort(port)) {
    return KORVAIN_FAIL(false, logger, KORVAIN_LOG_LEVEL_DEBUG,
                        "the port is invalid, port:%s, url:%s", port, url);
  }
  return true;
}

}  // namespace

int UDPClientMgr::Init(Logger* logger) {
  m_logger = logger;
  CloseClient();
  m_url_count = 0;
  srand(static_cast<unsigned int>(time(nullptr)));
  for (auto& url : m_url) url[0] = '\0';
  return 0;
}

void UDPClientMgr::AddCollectServerAddress(const char** collect_server_url, int32_t count) {
  if (count == 0) {
    KORVAIN_LOG(m_logger, KORVAIN_LOG_LEVEL_DEBUG, "the collect server count is zero.");
    return;
  }
  CollectValidUrls(collect_server_url, count);
  if (m_is_already_init_udp_client) CloseClient();
  if (m_url_count > 0) OpenClientFromRandomStart();
}

void UDPClientMgr::CollectValidUrls(const char** collect_server_url, int32_t count) {
  m_url_count = 0;
  if (collect_server_url == nullptr) return;
  for (int32_t i = 0; i < count; ++i) {
    const char* const url = collect_server_url[i];
    if (!CheckURL(url, m_logger)) {
      KORVAIN_LOG_AS(ADD_COLLECT_SERVER_ADDRESS, m_logger, KORVAIN_LOG_LEVEL_DEBUG,
                     "the url is invalid. url:%s", url == nullptr ? "(null)" : url);
      continue;
    }
    if (m_url_count >= STATISTIC_MAX_COLLECT_COUNT) {
      KORVAIN_LOG_AS(ADD_COLLECT_SERVER_ADDRESS, m_logger, KORVAIN_LOG_LEVEL_DEBUG,
                     "the collect server count(%d) >= STATISTIC_MAX_COLLECT_COUNT(%d)", m_url_count,
                     STATISTIC_MAX_COLLECT_COUNT);
      break;
    }
    detail::CopyText(m_url[m_url_count], url);
    ++m_url_count;
  }
}

void UDPClientMgr::OpenClientFromRandomStart() {
  int index = rand() % m_url_count;
  for (int attempt = 0; attempt < m_url_count; ++attempt) {
    const int ret = m_udp_client.Init(m_url[index], m_logger);
    if (ret == 0) {
      m_is_already_init_udp_client = true;
      m_current_index = index;
      KORVAIN_LOG_AS(ADD_COLLECT_SERVER_ADDRESS, m_logger, KORVAIN_LOG_LEVEL_DEBUG,
                     "m_udp_client.Init() success. url:%s", m_url[index]);
      return;
    }
    KORVAIN_LOG_AS(ADD_COLLECT_SERVER_ADDRESS, m_logger, KORVAIN_LOG_LEVEL_DEBUG,
                   "m_udp_client.Init() failed. ret:%d, url:%s", ret, m_url[index]);
    index = (index + 1) % m_url_count;
  }
  KORVAIN_LOG_AS(ADD_COLLECT_SERVER_ADDRESS, m_logger, KORVAIN_LOG_LEVEL_DEBUG,
                 "all url for m_udp_client.Init() failed.");
}

void UDPClientMgr::CloseClient() {
  m_udp_client.Fini();
  m_is_already_init_udp_client = false;
}

int UDPClientMgr::Send(const char* buff, int buff_len) {
  if (!m_is_already_init_udp_client) return GEN_ERR_ERR;
  const int ret = m_udp_client.Send(buff, buff_len);
  if (ret == 0) return 0;
  KORVAIN_LOG(m_logger, KORVAIN_LOG_LEVEL_DEBUG, "m_udp_client->Send() failed.");
  if (m_is_noticing) {
    LeaveCurrentServer();
  } else {
    CloseClient();
  }
  return ret;
}

void UDPClientMgr::Update() {
  if (m_is_noticing && m_is_already_init_udp_client) LeaveUnreachableServer();
  if (m_url_count <= 0 || m_is_already_init_udp_client) return;
  if (m_begin_index >= m_url_count) m_begin_index = 0;
  m_current_index = m_begin_index;
  m_is_already_init_udp_client = m_udp_client.Init(m_url[m_current_index], m_logger) == 0;
  ++m_begin_index;
}

// Other errors do not mean that the server is gone, such as EMSGSIZE for a path that has changed.
void UDPClientMgr::LeaveUnreachableServer() {
  const int error = m_udp_client.TakePendingError();
  if (error != ECONNREFUSED && error != EHOSTUNREACH && error != ENETUNREACH &&
      error != EHOSTDOWN) {
    return;
  }
  KORVAIN_LOG_AS("Update", m_logger, KORVAIN_LOG_LEVEL_DEBUG,
                 "the collect server is unreachable. url:%s, errno:%d, errstr:%s",
                 m_udp_client.GetUrl(), error, strerror(error));
  LeaveCurrentServer();
}

void UDPClientMgr::LeaveCurrentServer() {
  if (!m_is_already_init_udp_client) return;
  m_begin_index = m_current_index + 1;
  CloseClient();
}

const char* UDPClientMgr::GetCurrentUrl() const {
  return m_is_already_init_udp_client ? m_udp_client.GetUrl() : nullptr;
}

void UDPClientMgr::SetNoticeUnreachable(bool is_noticing) {
  m_is_noticing = is_noticing;
  m_udp_client.SetNoticeUnreachable(is_noticing);
}

}  // namespace KorvainService
