// What LatencyDataMgr does, stated a second time and with its interface: a vector in which requests
// are looked for, beside the model of the registry.
#ifndef KORVAIN_TESTS_LATENCY_MODEL_H_
#define KORVAIN_TESTS_LATENCY_MODEL_H_

#include <arpa/inet.h>

#include <vector>

#include "common/korvain_error_code.h"
#include "service_api/latency_data_mgr.h"
#include "support/fake_platform.h"
#include "support/recording_logger.h"
#include "support/registry_model.h"

namespace test {

class LatencyModel {
 public:
  using Request = KorvainService::LatencyData;

  int Init(int new_timeout, int new_limit, int new_app = 1, bool new_has_logger = true) {
    if (new_timeout <= 0 || new_limit <= 0) {
      const LogLine line =
          Expect(ERROR, "Init", "timeout(%d)<=0 || limit(%d) <=0", new_timeout, new_limit);
      if (new_has_logger) lines.push_back(line);
      return KorvainService::API_ERR_PARAMETER_INVALID;
    }
    is_ready = true;
    timeout = new_timeout;
    limit = new_limit;
    app = new_app;
    has_logger = new_has_logger;
    touched = full_count = unknown_count = 0;
    released_ids.clear();
    in_flight.clear();
    return 0;
  }

  // The slot given back last comes first, with its next generation; then slots never used.
  int PushBack(int zone, int64_t sent, int ip, int port) {
    if (!is_ready || in_flight.size() == size_t{KorvainService::MAX_NODE_COUNT}) {
      return RefuseRarely(full_count, KorvainService::API_ERR_ALLOCATE_MEMORY,
                          Expect(ERROR, "PushBack", "objslab is full, frequency:%d",
                                 KorvainService::MAX_LOG_FREQUENCY));
    }
    if (released_ids.empty()) released_ids.push_back(touched++);
    const int id = released_ids.back();
    released_ids.pop_back();
    in_flight.push_back({id, id, sent, zone, ip, port, 0});
    Log(Expect(DEBUG, "PushBack",
               "m_bidirection_list->Insert() success. send time:%lu, ip:%s, port:%d, "
               "zone_id:%d, id_for_latency_data:%d, id_for_list_node:%d",
               static_cast<unsigned long>(sent), Dotted(ip), port, zone, id, id));
    return id;
  }

  const Request* Find(int id) const {
    for (const Request& request : in_flight) {
      if (request.id_for_latency_data == id) return &request;
    }
    return nullptr;
  }

  int CalculateDelay(int id, int64_t received, RegistryModel* registry) {
    const Request* const request = Find(id);
    if (request == nullptr) return RefuseUnknown("CalculateDelay", id);
    const Pair pair{app, request->zone_id};
    RegistryModel::Record* const record = registry->Find(pair);
    if (record == nullptr) return RefuseMissingRecord("CalculateDelay", pair);
    if (received > request->time_ms) {
      const auto add = [request, received](auto& status) {
        status.ullAverageDelay +=
            static_cast<uint64_t>(received) - static_cast<uint64_t>(request->time_ms);
        ++status.dwCalculateAverageDelayResCount;
      };
      add(record->stOverallRunStatus);
      if (auto* access = registry->FindAccess(pair, request->ip, request->port)) add(*access);
    }
    Forget(id);
    return 0;
  }

  int Withdraw(int id) {
    if (Find(id) == nullptr) return RefuseUnknown("Withdraw", id);
    Forget(id);
    return 0;
  }

  template <class OnTimeOut>
  int TraverseForDeleteTimeOutNode(RegistryModel* registry, const OnTimeOut& on_time_out) {
    for (int rest = limit; rest > 0 && !in_flight.empty(); --rest) {
      const Request oldest = in_flight.front();
      const Pair pair{app, oldest.zone_id};
      RegistryModel::Record* const record = registry->Find(pair);
      if (record == nullptr) return RefuseMissingRecord("TraverseForDeleteTimeOutNode", pair);
      const auto age = static_cast<uint64_t>(clock_ms) - static_cast<uint64_t>(oldest.time_ms);
      if (clock_ms >= oldest.time_ms && age < static_cast<uint64_t>(timeout)) return 0;
      ++record->stOverallRunStatus.dwTimeoutCountPerMin;
      if (auto* access = registry->FindAccess(pair, oldest.ip, oldest.port)) {
        ++access->dwTimeoutCountPerMin;
        Log(Expect(ERROR, "TraverseForDeleteTimeOutNode",
                   "it is timeout. app_id:%d, zone_id:%d, ip:%s, port:%d, "
                   "id_for_latency_data:%d, id_for_list_node:%d",
                   app, oldest.zone_id, Dotted(oldest.ip), oldest.port, oldest.id_for_latency_data,
                   oldest.id_for_list_node));
      }
      Forget(oldest.id_for_latency_data);
      on_time_out(oldest);
    }
    return 0;
  }

  int Count() const { return static_cast<int>(in_flight.size()); }

  bool is_ready = false, has_logger = false;
  int enabled_level = INFO;
  int app = 0, timeout = 3000, limit = 100, touched = 0;
  std::vector<int> released_ids;          // each as it will be handed out
  std::vector<Request> in_flight;         // in the order in which they were sent
  int full_count = 0, unknown_count = 0;  // since the last line of each
  LogLines lines;

 private:
  static const char* Dotted(int ip) { return inet_ntoa({static_cast<in_addr_t>(ip)}); }

  void Log(const LogLine& line) {
    if (has_logger && line.level <= enabled_level) lines.push_back(line);
  }

  // The first line comes after as many silent occurrences as the next ones after a line.
  int RefuseRarely(int& count, int result, const LogLine& line) {
    if (count == KorvainService::MAX_LOG_FREQUENCY) Log(line);
    count = count % KorvainService::MAX_LOG_FREQUENCY + 1;
    return result;
  }

  int RefuseUnknown(const char* func, int id) {
    return RefuseRarely(
        unknown_count, KorvainService::GEN_ERR_ERR,
        Expect(ERROR, func, "objslab_get for latency data pool failed. id:%d, frequency:%d", id,
               KorvainService::MAX_LOG_FREQUENCY));
  }

  int RefuseMissingRecord(const char* func, Pair pair) {
    Log(Expect(ERROR, func, "statistic_mgr->GetServiceApiStatistic failed. app_id:%d, zone_id:%d",
               pair.first, pair.second));
    return KorvainService::GEN_ERR_ERR;
  }

  void Forget(int id) {
    in_flight.erase(in_flight.begin() + (Find(id) - in_flight.data()));
    released_ids.push_back(static_cast<int>((static_cast<uint32_t>(id) + 131072) & INT32_MAX));
  }
};

}  // namespace test

#endif  // KORVAIN_TESTS_LATENCY_MODEL_H_
