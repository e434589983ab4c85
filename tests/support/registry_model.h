// What the statistics registry does, stated a second time as plainly as possible and with its
// interface: for random runs beside it, line by line of the log.
#ifndef KORVAIN_TESTS_REGISTRY_MODEL_H_
#define KORVAIN_TESTS_REGISTRY_MODEL_H_

#include <unistd.h>

#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <utility>

#include "service_api/detail/log.h"
#include "service_api/statistic_mgr.h"
#include "support/fake_platform.h"
#include "support/recording_logger.h"

namespace test {

using Pair = std::pair<int, int>;  // application and zone

template <size_t SIZE>
void SetText(char (&field)[SIZE], const std::string& text) {
  memset(field, 0, SIZE);
  text.copy(field, SIZE - 1);
}

class RegistryModel {
 public:
  using Record = KorvainService::SERVICEAPISTATISTIC;
  using Status = KorvainService::ACCESSRUNSTATUS;
  using Option = KorvainService::StatisticOption;

  void Init(RecordingLogger* logger) { m_logger = logger; }

  int CreateStatisticMap(int set, int app, int zone) {
    if (records.empty()) {
      KORVAIN_LOG(m_logger, DEBUG, "allocate memory for MapAccessIndex:%zd",
                  sizeof(KorvainService::MapAccessIndex));
    }
    OptionOf(app, zone);
    const auto [entry, is_new] = records.try_emplace({app, zone});
    if (is_new) KORVAIN_LOG(m_logger, DEBUG, "allocate memory for SERVICEAPISTATISTIC:100056");
    Record& record = entry->second;
    record.iSetID = set;
    record.iAppID = app;
    record.iZoneID = zone;
    SetText(record.stProcessInfo.szIP, "127.0.0.1");
    record.stProcessInfo.iPid = getpid();
    return 0;
  }

  Option& OptionOf(int app, int zone) {
    const Option fresh{60, clock_ms / 1000, 0, 0, 0, ""};
    return options.emplace(Pair(app, zone), fresh).first->second;
  }

  Record* GetServiceApiStatistic(int app, int zone) {
    const auto found = records.find({app, zone});
    return found == records.end() ? nullptr : &found->second;
  }

  int FindAccessIndex(int zone, int ip, int port) const {
    const auto found = index.find({zone, ip, port});
    return found == index.end() ? -1 : found->second;
  }

  Status* GetAccessRunStatus(Record& record, int ip, int port) const {
    const int slot = FindAccessIndex(record.iZoneID, ip, port);
    if (slot < 0 || slot >= record.iAccessCount) return nullptr;
    return &record.astAccessStatistic[slot].stAccessRunStatus;
  }

  Status* GetAccessRunStatus(int app, int zone, int ip, int port) {
    Record* const record = GetServiceApiStatistic(app, zone);
    if (record != nullptr) return GetAccessRunStatus(*record, ip, port);
    RefuseMissingRecord(__func__, "GetServiceApiStatistic", app, zone);
    return nullptr;
  }

  int AddAccess(int app, int zone, const std::string& url, int ip, int port, const char* server) {
    if (FindAccessIndex(zone, ip, port) >= 0) return 0;
    Record* const record = GetServiceApiStatistic(app, zone);
    if (record == nullptr) return RefuseMissingRecord(__func__, FIND, app, zone);
    const int count = record->iAccessCount;
    if (count < 0 || count > 255) {
      return KORVAIN_FAIL(-256, m_logger, ERROR,
                          "the access count(%d) >=  STATISTIC_MAX_ACCESS_COUNT(256), can't add new "
                          "table to table statisticapp_id:%d, zone_id:%d, url:%s",
                          count, app, zone, url.c_str());
    }
    auto& host = record->astAccessStatistic[count].stHostInfo;
    SetText(host.szUrl, url.size() < 6 ? "" : url.substr(6));
    SetText(host.szSvrId, server);
    index[{zone, ip, port}] = count;
    record->iAccessCount = count + 1;
    KORVAIN_LOG(m_logger, DEBUG,
                "m_access_index_map->Insert() success. access count:%d, app_id:%d, zone_id:%d, "
                "url:%s, svr_id:%s",
                count + 1, app, zone, url.c_str(), server);
    return 0;
  }

  void ClearAccess(int zone) {
    index.erase(index.lower_bound({zone, INT32_MIN, INT32_MIN}),
                index.upper_bound({zone, INT32_MAX, INT32_MAX}));
  }

  int AddTable(int app, int zone, const std::string& name) {
    if (name.empty()) return KORVAIN_FAIL(-1811, m_logger, ERROR, "NULL == name || name is empty");
    Record* const record = GetServiceApiStatistic(app, zone);
    if (record == nullptr) return RefuseMissingRecord(__func__, FIND, app, zone);
    const int count = record->nTableCount;
    for (int i = 0; i < count && i < 256; ++i) {
      if (name.substr(0, 127) == record->astTableStatistic[i].szTableName) return i;
    }
    if (count < 0 || count > 255) {
      return KORVAIN_FAIL(-256, m_logger, ERROR,
                          "the table count(%d) is not in 0 to STATISTIC_MAX_TABLE_COUNT(256) - 1, "
                          "can't add new table. app_id:%d, zone_id:%d, name:%s",
                          count, app, zone, name.c_str());
    }
    SetText(record->astTableStatistic[count].szTableName, name);
    record->nTableCount = static_cast<int16_t>(count + 1);
    return count;
  }

  void Reset(int app, int zone) {
    constexpr size_t KEPT = offsetof(Record, nTableCount);
    if (Record* const record = GetServiceApiStatistic(app, zone)) {
      memset(reinterpret_cast<char*>(record) + KEPT, 0, sizeof(Record) - KEPT);
    }
  }

  bool IsShouldReportStatisticNow(int app, int zone, int64_t now) {
    const auto seconds = SecondsSinceReport(app, zone, now, 0);
    return seconds && *seconds >= static_cast<uint64_t>(OptionOf(app, zone).report_period);
  }

  void CalculateAverage(int app, int zone, int64_t now) {
    const auto seconds = SecondsSinceReport(app, zone, now, 1);
    Record* const record = GetServiceApiStatistic(app, zone);
    if (!seconds || record == nullptr) return;
    auto& overall = record->stOverallRunStatus;
    Rescale(overall, 2, 11, *seconds);  // from dwAccessErrCountPerMin on
    Rescale(overall, 58, 1, *seconds);  // dwDynamicErrCountPerMin
    Average(overall);
    SetText(overall.szUserDefinedText, OptionOf(app, zone).user_define_text);
    for (int i = 0; i < record->nTableCount && i < 256; ++i) {
      Rescale(record->astTableStatistic[i].stTableRunStatus, 0, 12, *seconds);
    }
    for (int i = 0; i < record->iAccessCount && i < 256; ++i) {
      Status& access = record->astAccessStatistic[i].stAccessRunStatus;
      Rescale(access, 0, 6, *seconds);
      Rescale(access, 36, 4, *seconds);  // from dwProxyReturnErrCountPerMin on
      Average(access);
    }
  }

  std::map<Pair, Record> records;
  std::map<Pair, Option> options;
  std::map<std::tuple<int, int, int>, int> index;  // zone, address, port

 private:
  static constexpr char FIND[] = "m_statistic_map.find";

  int RefuseMissingRecord(const char* func, const char* step, int app, int zone) {
    return KORVAIN_FAIL_AS(func, -256, m_logger, ERROR, "%s() failed. app_id:%d, zone_id:%d", step,
                           app, zone);
  }

  // Begins a new period instead when fewer than `least` have passed, or the clock has gone back.
  std::optional<uint64_t> SecondsSinceReport(int app, int zone, int64_t now, uint64_t least) {
    const auto option = options.find({app, zone});
    if (option == options.end()) return std::nullopt;
    int64_t& last = option->second.last_report_time;
    const uint64_t seconds = static_cast<uint64_t>(now) - static_cast<uint64_t>(last);
    if (now >= last && seconds >= least) return seconds;
    last = now;
    Reset(app, zone);
    return std::nullopt;
  }

  template <class Counters>
  static void Rescale(Counters& counters, size_t offset, int count, uint64_t seconds) {
    for (; count > 0; --count, offset += 4) {
      uint32_t value = 0;
      memcpy(&value, reinterpret_cast<char*>(&counters) + offset, 4);
      value = static_cast<uint32_t>(uint64_t{value} * 60 % (uint64_t{1} << 32) / seconds);
      memcpy(reinterpret_cast<char*>(&counters) + offset, &value, 4);
    }
  }

  template <class Counters>
  static void Average(Counters& counters) {
    const uint32_t samples = counters.dwCalculateAverageDelayResCount;
    if (samples > 0) counters.ullAverageDelay /= samples;
  }

  RecordingLogger* m_logger = nullptr;
};

}  // namespace test

#endif  // KORVAIN_TESTS_REGISTRY_MODEL_H_
