#include "service_api/udp_client_mgr.h"

#include <cstdlib>
#include <ctime>

#include "common/korvain_error_code.h"
#include "service_api/private_log.h"
#include "service_api/private_text.h"
#include "service_api/private_url_check.h"

namespace KorvainService {

namespace {

constexpr char OPERATION[] = "AddCollectServerAddress";  // in whose name its steps report

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
      KORVAIN_LOG_AS(OPERATION, m_logger, KORVAIN_LOG_LEVEL_DEBUG, "the url is invalid. url:%s",
                     url == nullptr ? "(null)" : url);
      continue;
    }
    if (m_url_count >= STATISTIC_MAX_COLLECT_COUNT) {
      KORVAIN_LOG_AS(OPERATION, m_logger, KORVAIN_LOG_LEVEL_DEBUG,
                     "the collect server count(%d) >= STATISTIC_MAX_COLLECT_COUNT(%d)", m_url_count,
                     STATISTIC_MAX_COLLECT_COUNT);
      break;
    }
    CopyText(m_url[m_url_count], url);
    ++m_url_count;
  }
}

void UDPClientMgr::OpenClientFromRandomStart() {
  int index = rand() % m_url_count;
  for (int attempt = 0; attempt < m_url_count; ++attempt) {
    const int ret = m_udp_client.Init(m_url[index], m_logger);
    if (ret == 0) {
      m_is_already_init_udp_client = true;
      KORVAIN_LOG_AS(OPERATION, m_logger, KORVAIN_LOG_LEVEL_DEBUG,
                     "m_udp_client.Init() success. url:%s", m_url[index]);
      return;
    }
    KORVAIN_LOG_AS(OPERATION, m_logger, KORVAIN_LOG_LEVEL_DEBUG,
                   "m_udp_client.Init() failed. ret:%d, url:%s", ret, m_url[index]);
    index = (index + 1) % m_url_count;
  }
  KORVAIN_LOG_AS(OPERATION, m_logger, KORVAIN_LOG_LEVEL_DEBUG,
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
  CloseClient();
  return ret;
}

void UDPClientMgr::Update() {
  if (m_url_count <= 0 || m_is_already_init_udp_client) return;
  if (m_begin_index >= m_url_count) m_begin_index = 0;
  m_is_already_init_udp_client = m_udp_client.Init(m_url[m_begin_index], m_logger) == 0;
  ++m_begin_index;
}

}  // namespace KorvainService
