// What the statistics registry does, stated a second time as plainly as possible: for random runs
// beside it, line by line of the log.
#ifndef KORVAIN_TESTS_REGISTRY_MODEL_H_
#define KORVAIN_TESTS_REGISTRY_MODEL_H_

#include <unistd.h>

#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <utility>

#include "service_api/statistic_mgr.h"
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

  void Create(int set, Pair pair, int64_t now_ms) {
    if (records.empty()) {
      lines.push_back(Expect(DEBUG, "CreateStatisticMap", "allocate memory for MapAccessIndex:%zd",
                             sizeof(KorvainService::MapAccessIndex)));
    }
    OptionOf(pair, now_ms);
    std::unique_ptr<Record>& record = records[pair];
    if (record == nullptr) {
      record = std::make_unique<Record>();
      lines.push_back(
          {DEBUG, "CreateStatisticMap", "allocate memory for SERVICEAPISTATISTIC:100056"});
    }
    record->iSetID = set;
    record->iAppID = pair.first;
    record->iZoneID = pair.second;
    SetText(record->stProcessInfo.szIP, "127.0.0.1");
    record->stProcessInfo.iPid = getpid();
  }

  Option& OptionOf(Pair pair, int64_t now_ms) {
    return options.emplace(pair, Option{60, now_ms / 1000, 0, 0, 0, ""}).first->second;
  }

  Record* Find(Pair pair) const {
    const auto found = records.find(pair);
    return found == records.end() ? nullptr : found->second.get();
  }

  int FindIndex(int zone, int ip, int port) const {
    const auto found = index.find({zone, ip, port});
    return found == index.end() ? -1 : found->second;
  }

  Status* FindAccess(Pair pair, int ip, int port) const {
    const int slot = FindIndex(pair.second, ip, port);
    if (slot < 0 || slot >= Find(pair)->iAccessCount) return nullptr;
    return &Find(pair)->astAccessStatistic[slot].stAccessRunStatus;
  }

  int AddAccess(Pair pair, const std::string& url, int ip, int port, const std::string& server) {
    if (FindIndex(pair.second, ip, port) >= 0) return 0;
    Record* const record = Find(pair);
    if (record == nullptr) return Refuse("AddAccess", "m_statistic_map.find() failed. ", pair);
    const int count = record->iAccessCount;
    if (count < 0 || count > 255) {
      const std::string why = "the access count(" + std::to_string(count) +
                              ") >=  STATISTIC_MAX_ACCESS_COUNT(256), can't add new table to "
                              "table statistic";
      return Refuse("AddAccess", why, pair, ", url:" + url);
    }
    auto& host = record->astAccessStatistic[count].stHostInfo;
    SetText(host.szUrl, url.size() < 6 ? "" : url.substr(6));
    SetText(host.szSvrId, server);
    index[{pair.second, ip, port}] = count;
    record->iAccessCount = count + 1;
    lines.push_back(
        {DEBUG, "AddAccess",
         "m_access_index_map->Insert() success. access count:" + std::to_string(count + 1) + ", " +
             Ids(pair) + ", url:" + url + ", svr_id:" + server});
    return 0;
  }

  int Refuse(const char* func, const std::string& why, Pair pair, const std::string& what = "") {
    lines.push_back({ERROR, func, why + Ids(pair) + what});
    return -256;
  }

  void ClearAccess(int zone) {
    index.erase(index.lower_bound({zone, INT32_MIN, INT32_MIN}),
                index.upper_bound({zone, INT32_MAX, INT32_MAX}));
  }

  int AddTable(Pair pair, const std::string& name) {
    if (name.empty()) {
      lines.push_back({ERROR, "AddTable", "NULL == name || name is empty"});
      return -1811;
    }
    Record* const record = Find(pair);
    if (record == nullptr) return Refuse("AddTable", "m_statistic_map.find() failed. ", pair);
    const int count = record->nTableCount;
    for (int i = 0; i < count && i < 256; ++i) {
      if (name.substr(0, 127) == record->astTableStatistic[i].szTableName) return i;
    }
    if (count < 0 || count > 255) {
      const std::string why = "the table count(" + std::to_string(count) +
                              ") is not in 0 to STATISTIC_MAX_TABLE_COUNT(256) - 1, can't add "
                              "new table. ";
      return Refuse("AddTable", why, pair, ", name:" + name);
    }
    SetText(record->astTableStatistic[count].szTableName, name);
    record->nTableCount = static_cast<int16_t>(count + 1);
    return count;
  }

  void Reset(Pair pair) {
    constexpr size_t KEPT = offsetof(Record, nTableCount);
    if (Record* const record = Find(pair)) {
      memset(reinterpret_cast<char*>(record) + KEPT, 0, sizeof(Record) - KEPT);
    }
  }

  bool IsReportDue(Pair pair, int64_t now) {
    const auto option = options.find(pair);
    if (option == options.end()) return false;
    if (Restarts(option->second.last_report_time > now, pair, now)) return false;
    return Since(option->second, now) >= static_cast<uint64_t>(option->second.report_period);
  }

  void CalculateAverage(Pair pair, int64_t now) {
    const auto option = options.find(pair);
    if (option == options.end()) return;
    if (Restarts(option->second.last_report_time >= now, pair, now) || !Find(pair)) return;
    const uint64_t seconds = Since(option->second, now);
    Record& record = *Find(pair);
    Rescale(record.stOverallRunStatus, 2, 11, seconds);  // from dwAccessErrCountPerMin on
    Rescale(record.stOverallRunStatus, 58, 1, seconds);  // dwDynamicErrCountPerMin
    Average(record.stOverallRunStatus);
    SetText(record.stOverallRunStatus.szUserDefinedText, option->second.user_define_text);
    for (int i = 0; i < record.nTableCount && i < 256; ++i) {
      Rescale(record.astTableStatistic[i].stTableRunStatus, 0, 12, seconds);
    }
    for (int i = 0; i < record.iAccessCount && i < 256; ++i) {
      Status& access = record.astAccessStatistic[i].stAccessRunStatus;
      Rescale(access, 0, 6, seconds);
      Rescale(access, offsetof(Status, dwProxyReturnErrCountPerMin), 4, seconds);
      Average(access);
    }
  }

  std::map<Pair, std::unique_ptr<Record>> records;
  std::map<Pair, Option> options;
  std::map<std::tuple<int, int, int>, int> index;  // zone, address, port
  LogLines lines;

 private:
  static std::string Ids(Pair pair) {
    return "app_id:" + std::to_string(pair.first) + ", zone_id:" + std::to_string(pair.second);
  }

  bool Restarts(bool has_gone_back, Pair pair, int64_t now) {
    if (!has_gone_back) return false;
    options[pair].last_report_time = now;
    Reset(pair);
    return true;
  }

  static uint64_t Since(const Option& option, int64_t now) {
    return static_cast<uint64_t>(now) - static_cast<uint64_t>(option.last_report_time);
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
    if (samples > 0) counters.ullAverageDelay = counters.ullAverageDelay / samples;
  }
};

}  // namespace test

#endif  // KORVAIN_TESTS_REGISTRY_MODEL_H_
