// What LatencyDataMgr does, stated a second time and with its interface: a vector in which requests
// are looked for, beside the model of the registry.
#ifndef KORVAIN_TESTS_LATENCY_MODEL_H_
#define KORVAIN_TESTS_LATENCY_MODEL_H_

#include <arpa/inet.h>

#include <algorithm>
#include <vector>

#include "common/korvain_error_code.h"
#include "service_api/detail/log.h"
#include "service_api/latency_data_mgr.h"
#include "support/fake_platform.h"
#include "support/recording_logger.h"
#include "support/registry_model.h"

namespace test {

class LatencyModel {
 public:
  using Request = KorvainService::LatencyData;

  int Init(int new_app, int new_timeout, int new_limit, RecordingLogger* new_logger) {
    if (new_timeout <= 0 || new_limit <= 0) {
      return KORVAIN_FAIL(KorvainService::API_ERR_PARAMETER_INVALID, new_logger, ERROR,
                          "timeout(%d)<=0 || limit(%d) <=0", new_timeout, new_limit);
    }
    *this = LatencyModel();
    is_ready = true;
    app = new_app;
    timeout = new_timeout;
    limit = new_limit;
    logger = new_logger;
    return 0;
  }

  void SetTimeOut(int value) { timeout = value > 0 ? value : 3000; }
  void SetLimit(int value) { limit = value > 0 ? value : 100; }

  // The slot given back last comes first, with its next generation; then slots never used.
  int PushBack(int zone, int64_t sent, int ip, int port) {
    if (!is_ready || in_flight.size() == size_t{KorvainService::MAX_NODE_COUNT}) {
      if (IsLineDue(full_count)) {
        KORVAIN_LOG(logger, ERROR, "objslab is full, frequency:%d", MOST_SILENT);
      }
      return KorvainService::API_ERR_ALLOCATE_MEMORY;
    }
    if (released_ids.empty()) released_ids.push_back(touched++);
    const int id = released_ids.back();
    released_ids.pop_back();
    in_flight.push_back({id, id, sent, zone, ip, port, 0});
    if (logger != nullptr && logger->IsPriorityEnabled(DEBUG)) {
      KORVAIN_LOG(logger, DEBUG,
                  "m_bidirection_list->Insert() success. send time:%lu, ip:%s, port:%d, "
                  "zone_id:%d, id_for_latency_data:%d, id_for_list_node:%d",
                  static_cast<unsigned long>(sent), Dotted(ip), port, zone, id, id);
    }
    return id;
  }

  const Request* Find(int id) const {
    const auto found =
        std::find_if(in_flight.begin(), in_flight.end(),
                     [id](const Request& request) { return request.id_for_latency_data == id; });
    return found == in_flight.end() ? nullptr : &*found;
  }

  int CalculateDelay(int id, int64_t received, RegistryModel* registry) {
    const Request* const request = Find(id);
    if (request == nullptr) return RefuseUnknown(__func__, id);
    RegistryModel::Record* const record = registry->GetServiceApiStatistic(app, request->zone_id);
    if (record == nullptr) return RefuseMissingRecord(__func__, request->zone_id);
    if (received > request->time_ms) {
      const auto add = [request, received](auto& status) {
        status.ullAverageDelay +=
            static_cast<uint64_t>(received) - static_cast<uint64_t>(request->time_ms);
        ++status.dwCalculateAverageDelayResCount;
      };
      add(record->stOverallRunStatus);
      auto* const access = registry->GetAccessRunStatus(*record, request->ip, request->port);
      if (access != nullptr) add(*access);
    }
    return Forget(id);
  }

  int Withdraw(int id) { return Find(id) == nullptr ? RefuseUnknown(__func__, id) : Forget(id); }

  int TraverseForDeleteTimeOutNode(
      RegistryModel* registry, const KorvainService::LatencyDataMgr::TimeOutHandler& on_time_out) {
    for (int rest = limit; rest > 0 && !in_flight.empty(); --rest) {
      const Request oldest = in_flight.front();
      RegistryModel::Record* const record = registry->GetServiceApiStatistic(app, oldest.zone_id);
      if (record == nullptr) return RefuseMissingRecord(__func__, oldest.zone_id);
      const auto age = static_cast<uint64_t>(clock_ms) - static_cast<uint64_t>(oldest.time_ms);
      if (clock_ms >= oldest.time_ms && age < static_cast<uint64_t>(timeout)) return 0;
      ++record->stOverallRunStatus.dwTimeoutCountPerMin;
      if (auto* access = registry->GetAccessRunStatus(*record, oldest.ip, oldest.port)) {
        ++access->dwTimeoutCountPerMin;
        KORVAIN_LOG(logger, ERROR,
                    "it is timeout. app_id:%d, zone_id:%d, ip:%s, port:%d, "
                    "id_for_latency_data:%d, id_for_list_node:%d",
                    app, oldest.zone_id, Dotted(oldest.ip), oldest.port, oldest.id_for_latency_data,
                    oldest.id_for_list_node);
      }
      Forget(oldest.id_for_latency_data);
      if (on_time_out) on_time_out(oldest);
    }
    return 0;
  }

  int Count() const { return static_cast<int>(in_flight.size()); }

  RecordingLogger* logger = nullptr;
  bool is_ready = false;
  int app = 0, timeout = 3000, limit = 100, touched = 0;
  std::vector<int> released_ids;          // each as it will be handed out
  std::vector<Request> in_flight;         // in the order in which they were sent
  int full_count = 0, unknown_count = 0;  // since the last line of each

 private:
  static constexpr int MOST_SILENT = KorvainService::MAX_LOG_FREQUENCY;

  static const char* Dotted(int ip) { return inet_ntoa({static_cast<in_addr_t>(ip)}); }

  // The first line comes after as many silent occurrences as the next ones after a line.
  static bool IsLineDue(int& count) {
    const bool is_due = count == MOST_SILENT;
    count = is_due ? 1 : count + 1;
    return is_due;
  }

  int RefuseUnknown(const char* func, int id) {
    if (IsLineDue(unknown_count)) {
      KORVAIN_LOG_AS(func, logger, ERROR,
                     "objslab_get for latency data pool failed. id:%d, frequency:%d", id,
                     MOST_SILENT);
    }
    return KorvainService::GEN_ERR_ERR;
  }

  int RefuseMissingRecord(const char* func, int zone) {
    return KORVAIN_FAIL_AS(func, KorvainService::GEN_ERR_ERR, logger, ERROR,
                           "statistic_mgr->GetServiceApiStatistic failed. app_id:%d, zone_id:%d",
                           app, zone);
  }

  int Forget(int id) {
    in_flight.erase(in_flight.begin() + (Find(id) - in_flight.data()));
    released_ids.push_back(static_cast<int>((static_cast<uint32_t>(id) + 131072) & INT32_MAX));
    return 0;
  }
};

}  // namespace test

#endif  // KORVAIN_TESTS_LATENCY_MODEL_H_
