// Report options and their setters.
#include "service_api/detail/text.h"
#include "service_api/korvain/korvain_service_clock.h"
#include "service_api/statistic_mgr.h"

namespace KorvainService {

StatisticOption KorvainServiceStatisticMgr::MakeFreshOption() {
  StatisticOption option{};
  option.report_period = STATISTIC_DEFAULT_REPORT_PERIOD;
  option.last_report_time = GetCurrentMilliseconds() / 1000;
  return option;
}

const StatisticOption* KorvainServiceStatisticMgr::FindOption(int32_t app_id,
                                                              int32_t zone_id) const {
  const auto found = m_option_map.find(GetKey(app_id, zone_id));
  return found == m_option_map.end() ? nullptr : &found->second;
}

StatisticOption* KorvainServiceStatisticMgr::FindOption(int32_t app_id, int32_t zone_id) {
  const auto found = m_option_map.find(GetKey(app_id, zone_id));
  return found == m_option_map.end() ? nullptr : &found->second;
}

StatisticOption& KorvainServiceStatisticMgr::FindOrMakeOption(int32_t app_id, int32_t zone_id) {
  if (StatisticOption* option = FindOption(app_id, zone_id)) return *option;
  return m_option_map.emplace(GetKey(app_id, zone_id), MakeFreshOption()).first->second;
}

void KorvainServiceStatisticMgr::SetReportPeriod(int32_t app_id, int32_t zone_id, int32_t period) {
  FindOrMakeOption(app_id, zone_id).report_period =
      period < STATISTIC_DEFAULT_REPORT_PERIOD ? STATISTIC_DEFAULT_REPORT_PERIOD : period;
}

void KorvainServiceStatisticMgr::SetLastReportTime(int32_t app_id, int32_t zone_id,
                                                   int64_t last_report_time) {
  FindOrMakeOption(app_id, zone_id).last_report_time = last_report_time;
}

void KorvainServiceStatisticMgr::SetBusinessId(int32_t app_id, int32_t zone_id,
                                               int32_t business_id) {
  FindOrMakeOption(app_id, zone_id).business_id = business_id;
}

int32_t KorvainServiceStatisticMgr::GetBusinessId(int32_t app_id, int32_t zone_id) const {
  const StatisticOption* option = FindOption(app_id, zone_id);
  return option == nullptr ? 0 : option->business_id;
}

void KorvainServiceStatisticMgr::SetMetalibId(int32_t app_id, int32_t zone_id, int32_t metalib_id) {
  FindOrMakeOption(app_id, zone_id).metalib_id = metalib_id;
}

int32_t KorvainServiceStatisticMgr::GetMetalibId(int32_t app_id, int32_t zone_id) const {
  const StatisticOption* option = FindOption(app_id, zone_id);
  return option == nullptr ? 0 : option->metalib_id;
}

void KorvainServiceStatisticMgr::SetUserDefineText(int32_t app_id, int32_t zone_id,
                                                   const char* user_define_text) {
  detail::CopyText(FindOrMakeOption(app_id, zone_id).user_define_text, user_define_text);
}

void KorvainServiceStatisticMgr::SetDynamicErrorCode(int32_t app_id, int32_t zone_id,
                                                     int32_t dynamic_error_code) {
  FindOrMakeOption(app_id, zone_id).dynamic_error_code = dynamic_error_code;
}

int32_t KorvainServiceStatisticMgr::GetDynamicErrorCode(int32_t app_id, int32_t zone_id) const {
  const StatisticOption* option = FindOption(app_id, zone_id);
  return option == nullptr ? 0 : option->dynamic_error_code;
}

}  // namespace KorvainService
