// What the latency manager does, stated a second time: a deque in which requests are looked for.
#ifndef KORVAIN_TESTS_LATENCY_MODEL_H_
#define KORVAIN_TESTS_LATENCY_MODEL_H_

#include <arpa/inet.h>

#include <algorithm>
#include <deque>
#include <string>
#include <vector>

#include "common/korvain_error_code.h"
#include "service_api/latency_data_mgr.h"
#include "support/expected_line.h"
#include "support/registry_model.h"

namespace test {

struct Request {
  int id;
  int64_t sent;
  int zone, ip;
};

// Requests of one application, all to one port. Times are taken from the caller.
class LatencyModel {
 public:
  static constexpr int PORT = 80;

  LatencyModel(RegistryModel& model, int app_id) : registry(model), app(app_id) {}

  void Init(int new_timeout, int new_limit) {
    is_ready = true;
    timeout = new_timeout;
    limit = new_limit;
    touched = 0;
    released_ids.clear();
    in_flight.clear();
    full_count = unknown_count = 0;
  }

  // The slot given back last comes first, with its next generation; then slots never used.
  int Push(int64_t sent, int zone, int ip) {
    if (!is_ready || in_flight.size() == size_t{KorvainService::MAX_NODE_COUNT}) {
      CountFailure(full_count, Expect(ERROR, "PushBack", "objslab is full, frequency:%d",
                                      KorvainService::MAX_LOG_FREQUENCY));
      return KorvainService::API_ERR_ALLOCATE_MEMORY;
    }
    int id = touched;
    if (released_ids.empty()) {
      ++touched;
    } else {
      id = released_ids.back();
      released_ids.pop_back();
    }
    in_flight.push_back({id, sent, zone, ip});
    if (is_debug_wanted) {
      lines.push_back(Expect(DEBUG, "PushBack",
                             "m_bidirection_list->Insert() success. send time:%lu, ip:%s, port:%d, "
                             "zone_id:%d, id_for_latency_data:%d, id_for_list_node:%d",
                             static_cast<unsigned long>(sent), Dotted(ip).c_str(), PORT, zone, id,
                             id));
    }
    return id;
  }

  std::deque<Request>::iterator Find(int id) {
    return std::find_if(in_flight.begin(), in_flight.end(),
                        [id](const Request& request) { return request.id == id; });
  }

  int Complete(int id, int64_t received) {
    const auto found = Find(id);
    if (found == in_flight.end()) return RefuseUnknown("CalculateDelay", id);
    const Pair pair{app, found->zone};
    if (registry.Find(pair) == nullptr) return RefuseMissingRecord("CalculateDelay", found->zone);
    if (received > found->sent) {
      const auto delay = static_cast<uint64_t>(received) - static_cast<uint64_t>(found->sent);
      AddDelay(registry.Find(pair)->stOverallRunStatus, delay);
      if (auto* access = registry.FindAccess(pair, found->ip, PORT)) AddDelay(*access, delay);
    }
    Forget(found);
    return 0;
  }

  int Withdraw(int id) {
    const auto found = Find(id);
    if (found == in_flight.end()) return RefuseUnknown("Withdraw", id);
    Forget(found);
    return 0;
  }

  template <class OnTimeOut>
  int Sweep(int64_t now, OnTimeOut on_time_out) {
    for (int rest = limit; rest > 0 && !in_flight.empty(); --rest) {
      const Request oldest = in_flight.front();
      const Pair pair{app, oldest.zone};
      RegistryModel::Record* const record = registry.Find(pair);
      if (record == nullptr) {
        return RefuseMissingRecord("TraverseForDeleteTimeOutNode", oldest.zone);
      }
      const uint64_t age = static_cast<uint64_t>(now) - static_cast<uint64_t>(oldest.sent);
      if (now >= oldest.sent && age < static_cast<uint64_t>(timeout)) return 0;
      ++record->stOverallRunStatus.dwTimeoutCountPerMin;
      if (auto* access = registry.FindAccess(pair, oldest.ip, PORT)) {
        ++access->dwTimeoutCountPerMin;
        lines.push_back(Expect(ERROR, "TraverseForDeleteTimeOutNode",
                               "it is timeout. app_id:%d, zone_id:%d, ip:%s, port:%d, "
                               "id_for_latency_data:%d, id_for_list_node:%d",
                               app, oldest.zone, Dotted(oldest.ip).c_str(), PORT, oldest.id,
                               oldest.id));
      }
      Forget(in_flight.begin());
      on_time_out(oldest);
    }
    return 0;
  }

  int CountNow() const { return static_cast<int>(in_flight.size()); }

  RegistryModel& registry;
  int app;
  bool is_ready = false, is_debug_wanted = false;
  int timeout = 3000, limit = 100;
  int touched = 0;
  std::vector<int> released_ids;  // each as it will be handed out
  std::deque<Request> in_flight;
  int full_count = 0, unknown_count = 0;  // since the last line of each
  LogLines lines;

 private:
  static std::string Dotted(int ip) {
    char text[INET_ADDRSTRLEN];
    return inet_ntop(AF_INET, &ip, text, sizeof(text));
  }

  // The first line comes after as many silent occurrences as the next ones after a line.
  void CountFailure(int& count, const LogLine& line) {
    if (++count <= KorvainService::MAX_LOG_FREQUENCY) return;
    count = 1;
    if (is_ready) lines.push_back(line);  // before Init there is no logger
  }

  int RefuseUnknown(const char* func, int id) {
    CountFailure(
        unknown_count,
        Expect(ERROR, func, "objslab_get for latency data pool failed. id:%d, frequency:%d", id,
               KorvainService::MAX_LOG_FREQUENCY));
    return KorvainService::GEN_ERR_ERR;
  }

  int RefuseMissingRecord(const char* func, int zone) {
    lines.push_back(Expect(ERROR, func,
                           "statistic_mgr->GetServiceApiStatistic failed. app_id:%d, zone_id:%d",
                           app, zone));
    return KorvainService::GEN_ERR_ERR;
  }

  template <class Status>
  static void AddDelay(Status& status, uint64_t delay) {
    status.ullAverageDelay += delay;
    ++status.dwCalculateAverageDelayResCount;
  }

  void Forget(std::deque<Request>::iterator request) {
    released_ids.push_back(request->id + 131072);
    in_flight.erase(request);
  }
};

}  // namespace test

#endif  // KORVAIN_TESTS_LATENCY_MODEL_H_
