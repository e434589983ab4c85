// The judge's keys, settings and queries.
#include "service_api/judge_proxy.h"

#include <sys/time.h>

#include <charconv>
#include <cstring>

#include "service_api/detail/log.h"
#include "service_api/detail/text.h"
#include "service_api/statistic_key.h"

namespace KorvainService {

namespace {

uint64_t HashByte(uint64_t hash, char byte) {
  return 5 * hash + static_cast<uint64_t>(static_cast<int64_t>(static_cast<signed char>(byte)));
}

uint64_t HashNumber(uint64_t hash, int32_t number) {
  char digits[11] = {};  // as many as INT32_MIN needs
  const char* const end = std::to_chars(digits, digits + sizeof(digits), number).ptr;
  for (const char* digit = digits; digit != end; ++digit) hash = HashByte(hash, *digit);
  return hash;
}

int32_t PositiveOr(int32_t value, int32_t fallback) {
  return value > 0 ? value : fallback;
}

}  // namespace

JudgeProxyMapKeyInfo::JudgeProxyMapKeyInfo(int32_t app, int32_t zone, const char* url_text)
    : app_id(app), zone_id(zone) {
  detail::CopyText(url, url_text);
}

bool operator==(const JudgeProxyMapKeyInfo& left, const JudgeProxyMapKeyInfo& right) {
  return left.app_id == right.app_id && left.zone_id == right.zone_id &&
         strncmp(left.url, right.url, sizeof(left.url)) == 0;
}

size_t JudgeProxyHash::operator()(const JudgeProxyMapKeyInfo& key) const {
  uint64_t hash = HashByte(HashNumber(0, key.app_id), '#');
  hash = HashByte(HashNumber(hash, key.zone_id), '#');
  for (const char* byte = key.url; *byte != '\0'; ++byte) hash = HashByte(hash, *byte);
  return hash;
}

JudgeProxy::JudgeProxy(Logger* logger) : m_logger(logger) {}

void JudgeProxy::SetThreshold(int app_id, int zone_id, int threshold) {
  const bool is_acceptable = threshold >= MIN_JUDGE_PROXY_UNAVAILABLE_THRESHOLD &&
                             threshold <= MAX_JUDEG_PROXY_UNAVAILABLE_THRESHOLD;
  FindOrMakeOption(app_id, zone_id).threshold =
      is_acceptable ? threshold : DEFAULT_JUDGE_PROXY_UNAVAILABLE_THRESHOLD;
}

void JudgeProxy::SetCheckPeriod(int app_id, int zone_id, int check_period) {
  FindOrMakeOption(app_id, zone_id).check_period =
      PositiveOr(check_period, DEFAULT_JUDGE_PROXY_CHECK_PERIOD);
}

void JudgeProxy::SetCheckTimes(int app_id, int zone_id, int check_times) {
  FindOrMakeOption(app_id, zone_id).check_times =
      PositiveOr(check_times, DEFAULT_JUDGE_PROXY_CHECK_TIMES);
}

void JudgeProxy::SetRecheckAvailableInterval(int app_id, int zone_id, int recheck_interval) {
  FindOrMakeOption(app_id, zone_id).recheck_available_interval =
      PositiveOr(recheck_interval, DEFAULT_RECHECK_PROXY_AVAILABLE_INTERVAL);
}

int JudgeProxy::GetRecheckAvailableInterval(int app_id, int zone_id) const {
  const JudgeProxyOption* option = FindOption(app_id, zone_id);
  return option == nullptr ? DEFAULT_RECHECK_PROXY_AVAILABLE_INTERVAL
                           : option->recheck_available_interval;
}

bool JudgeProxy::IsShouldCheck(int app_id, int zone_id) {
  JudgeProxyOption* option = FindOption(app_id, zone_id);
  if (option == nullptr || !option->should_check) return false;
  option->should_check = false;
  return true;
}

bool JudgeProxy::IsProxyUnavailable(int app_id, int zone_id, const char* url) {
  if (url == nullptr) return false;
  JudgeProxyStatus* status = FindStatus(app_id, zone_id, url);
  if (status == nullptr) return false;
  const JudgeProxyOption* option = FindOption(app_id, zone_id);
  const int32_t check_times =
      option == nullptr ? DEFAULT_JUDGE_PROXY_CHECK_TIMES : option->check_times;
  if (status->unavailable_times < check_times) return false;
  status->unavailable_times = 0;
  return true;
}

int JudgeProxy::GetUnavailableTimes(int app_id, int zone_id, const char* url) const {
  if (url == nullptr) return -1;
  const JudgeProxyStatus* status = FindStatus(app_id, zone_id, url);
  return status == nullptr ? -1 : status->unavailable_times;
}

int JudgeProxy::ResetJudgeProxyStatus(int app_id, int zone_id, const char* url) {
  if (url == nullptr) {
    return KORVAIN_FAIL(-1, m_logger, KORVAIN_LOG_LEVEL_ERROR, "NULL == url.");
  }
  JudgeProxyStatus* status = FindStatus(app_id, zone_id, url);
  if (status == nullptr) return -2;
  status->unavailable_times = 0;
  Stamp(GetCurSecondTime(), *status);
  KORVAIN_LOG(m_logger, KORVAIN_LOG_LEVEL_INFO, "ResetJudgeProxyStatus success, url: %s.", url);
  return 0;
}

const JudgeProxyOption* JudgeProxy::FindOption(int app_id, int zone_id) const {
  const auto found = m_option_map.find(GetKey(app_id, zone_id));
  return found == m_option_map.end() ? nullptr : &found->second;
}

JudgeProxyOption* JudgeProxy::FindOption(int app_id, int zone_id) {
  const auto found = m_option_map.find(GetKey(app_id, zone_id));
  return found == m_option_map.end() ? nullptr : &found->second;
}

JudgeProxyOption& JudgeProxy::FindOrMakeOption(int app_id, int zone_id) {
  return m_option_map[GetKey(app_id, zone_id)];
}

const JudgeProxyStatus* JudgeProxy::FindStatus(int app_id, int zone_id, const char* url) const {
  const auto found = m_map.find(JudgeProxyMapKeyInfo(app_id, zone_id, detail::SkipScheme(url)));
  return found == m_map.end() ? nullptr : &found->second;
}

JudgeProxyStatus* JudgeProxy::FindStatus(int app_id, int zone_id, const char* url) {
  const auto found = m_map.find(JudgeProxyMapKeyInfo(app_id, zone_id, detail::SkipScheme(url)));
  return found == m_map.end() ? nullptr : &found->second;
}

int64_t JudgeProxy::GetCurSecondTime() {
  timeval now{};
  gettimeofday(&now, nullptr);
  return now.tv_sec;
}

}  // namespace KorvainService
