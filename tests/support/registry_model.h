// What the statistics registry does, stated a second time as plainly as possible: for random runs
// beside it, line by line of the log.
#ifndef KORVAIN_TESTS_REGISTRY_MODEL_H_
#define KORVAIN_TESTS_REGISTRY_MODEL_H_

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <utility>

#include "common/korvain_error_code.h"
#include "service_api/statistic_mgr.h"
#include "support/expected_line.h"

namespace test {

using Pair = std::pair<int, int>;  // application and zone

class RegistryModel {
 public:
  using Record = KorvainService::SERVICEAPISTATISTIC;
  using Status = KorvainService::ACCESSRUNSTATUS;

  struct Option {
    int period = 60;
    int64_t last_report = 0;
    int business = 0, metalib = 0, dynamic_error = 0;
    std::string text;
  };

  void Create(int set, Pair pair, int64_t now_ms) {
    if (!std::exchange(has_index, true)) {
      lines.push_back(Expect(DEBUG, "CreateStatisticMap", "allocate memory for MapAccessIndex:%zd",
                             sizeof(KorvainService::MapAccessIndex)));
    }
    OptionOf(pair, now_ms);
    std::unique_ptr<Record>& record = records[pair];
    if (record == nullptr) {
      record = std::make_unique<Record>();
      lines.push_back(Expect(DEBUG, "CreateStatisticMap",
                             "allocate memory for SERVICEAPISTATISTIC:%zd", sizeof(Record)));
    }
    record->iSetID = set;
    record->iAppID = pair.first;
    record->iZoneID = pair.second;
    SetField(record->stProcessInfo.szIP, "127.0.0.1");
    record->stProcessInfo.iPid = getpid();
  }

  Option& OptionOf(Pair pair, int64_t now_ms) {
    const auto [option, is_new] = options.emplace(pair, Option());
    if (is_new) option->second.last_report = now_ms / 1000;
    return option->second;
  }

  Record* Find(Pair pair) const {
    const auto found = records.find(pair);
    return found == records.end() ? nullptr : found->second.get();
  }

  Status* FindAccess(Pair pair, int ip, int port) const {
    const auto found = index.find({pair.second, ip, port});
    if (found == index.end() || found->second >= Find(pair)->iAccessCount) return nullptr;
    return &Find(pair)->astAccessStatistic[found->second].stAccessRunStatus;
  }

  int AddAccess(Pair pair, const std::string& url, int ip, int port, const std::string& server) {
    const auto [app, zone] = pair;
    if (index.count({zone, ip, port}) != 0) return 0;
    Record* const record = Find(pair);
    if (record == nullptr) return RefuseMissing("AddAccess", pair);
    const int count = record->iAccessCount;
    if (count < 0 || count > 255) {
      lines.push_back(Expect(
          ERROR, "AddAccess",
          "the access count(%d) >=  STATISTIC_MAX_ACCESS_COUNT(256), can't add new table to table "
          "statisticapp_id:%d, zone_id:%d, url:%s",
          count, app, zone, url.c_str()));
      return KorvainService::GEN_ERR_ERR;
    }
    SetField(record->astAccessStatistic[count].stHostInfo.szUrl,
             url.size() < 6 ? "" : url.substr(6));
    SetField(record->astAccessStatistic[count].stHostInfo.szSvrId, server);
    index[{zone, ip, port}] = count;
    record->iAccessCount = count + 1;
    lines.push_back(Expect(DEBUG, "AddAccess",
                           "m_access_index_map->Insert() success. access count:%d, app_id:%d, "
                           "zone_id:%d, url:%s, svr_id:%s",
                           count + 1, app, zone, url.c_str(), server.c_str()));
    return 0;
  }

  void ClearAccess(int zone) {
    for (auto entry = index.begin(); entry != index.end();) {
      entry = std::get<0>(entry->first) == zone ? index.erase(entry) : std::next(entry);
    }
  }

  int AddTable(Pair pair, const std::string& name) {
    if (name.empty()) {
      lines.push_back(Expect(ERROR, "AddTable", "NULL == name || name is empty"));
      return KorvainService::API_ERR_PARAMETER_INVALID;
    }
    Record* const record = Find(pair);
    if (record == nullptr) return RefuseMissing("AddTable", pair);
    const int count = record->nTableCount;
    for (int i = 0; i < count && i < 256; ++i) {
      if (name.substr(0, 127) == record->astTableStatistic[i].szTableName) return i;
    }
    if (count < 0 || count > 255) {
      lines.push_back(Expect(
          ERROR, "AddTable",
          "the table count(%d) is not in 0 to STATISTIC_MAX_TABLE_COUNT(256) - 1, can't add new "
          "table. app_id:%d, zone_id:%d, name:%s",
          count, pair.first, pair.second, name.c_str()));
      return KorvainService::GEN_ERR_ERR;
    }
    SetField(record->astTableStatistic[count].szTableName, name);
    record->nTableCount = static_cast<int16_t>(count + 1);
    return count;
  }

  void Reset(Pair pair) {
    Record* const record = Find(pair);
    if (record == nullptr) return;
    const Record old = *record;
    *record = Record();
    record->iSetID = old.iSetID;
    record->iAppID = old.iAppID;
    record->iZoneID = old.iZoneID;
    record->stProcessInfo = old.stProcessInfo;
  }

  bool IsReportDue(Pair pair, int64_t now) {
    const auto option = options.find(pair);
    if (option == options.end() || Restarts(option->second.last_report > now, pair, now)) {
      return false;
    }
    return static_cast<uint64_t>(now) - static_cast<uint64_t>(option->second.last_report) >=
           static_cast<uint64_t>(option->second.period);
  }

  void CalculateAverage(Pair pair, int64_t now) {
    const auto option = options.find(pair);
    if (option == options.end()) return;
    if (Restarts(option->second.last_report >= now, pair, now) || Find(pair) == nullptr) return;
    const uint64_t seconds =
        static_cast<uint64_t>(now) - static_cast<uint64_t>(option->second.last_report);
    Record& record = *Find(pair);
    auto& overall = record.stOverallRunStatus;
    Rescale(overall, offsetof(KorvainService::OVERALLRUNSTATUS, dwAccessErrCountPerMin), 11,
            seconds);
    Rescale(overall, offsetof(KorvainService::OVERALLRUNSTATUS, dwDynamicErrCountPerMin), 1,
            seconds);
    Average(overall);
    SetField(overall.szUserDefinedText, option->second.text);
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

  bool has_index = false;
  std::map<Pair, std::unique_ptr<Record>> records;
  std::map<Pair, Option> options;
  std::map<std::tuple<int, int, int>, int> index;  // zone, address, port
  LogLines lines;

 private:
  int RefuseMissing(const char* func, Pair pair) {
    lines.push_back(Expect(ERROR, func, "m_statistic_map.find() failed. app_id:%d, zone_id:%d",
                           pair.first, pair.second));
    return KorvainService::GEN_ERR_ERR;
  }

  bool Restarts(bool has_gone_back, Pair pair, int64_t now) {
    if (!has_gone_back) return false;
    options[pair].last_report = now;
    Reset(pair);
    return true;
  }

  template <size_t SIZE>
  static void SetField(char (&field)[SIZE], const std::string& text) {
    memset(field, 0, SIZE);
    memcpy(field, text.data(), std::min(SIZE - 1, text.size()));
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
