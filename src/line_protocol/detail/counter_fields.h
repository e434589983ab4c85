// The counters of a record that are rates, each named once, in record order. Not installed.
#ifndef KORVAIN_COUNTER_FIELDS_H_
#define KORVAIN_COUNTER_FIELDS_H_

#include <cstddef>
#include <cstdint>
#include <iterator>

#include "service_api/service_api_statistic.h"

namespace KorvainService::detail {

// An offset, since a member of a packed record must not be bound to a reference.
struct CounterField {
  size_t offset;
  const char* key;
};

inline constexpr CounterField OVERALL_COUNTER_FIELDS[] = {
    {offsetof(OVERALLRUNSTATUS, dwAccessErrCountPerMin), "access_errors_per_min"},
    {offsetof(OVERALLRUNSTATUS, dwSendErrCountPerMin), "send_errors_per_min"},
    {offsetof(OVERALLRUNSTATUS, dwRecvErrCountPerMin), "recv_errors_per_min"},
    {offsetof(OVERALLRUNSTATUS, dwRouteErrCountPerMin), "route_errors_per_min"},
    {offsetof(OVERALLRUNSTATUS, dwUnpackErrCountPerMin), "unpack_errors_per_min"},
    {offsetof(OVERALLRUNSTATUS, dwRequestCountPerMin), "requests_per_min"},
    {offsetof(OVERALLRUNSTATUS, dwBatchRequestCountPerMin), "batch_requests_per_min"},
    {offsetof(OVERALLRUNSTATUS, dwResponseCountPerMin), "responses_per_min"},
    {offsetof(OVERALLRUNSTATUS, dwBatchResponseCountPerMin), "batch_responses_per_min"},
    {offsetof(OVERALLRUNSTATUS, dwSuccessResponseCountPerMin), "success_responses_per_min"},
    {offsetof(OVERALLRUNSTATUS, dwTimeoutCountPerMin), "timeouts_per_min"},
    {offsetof(OVERALLRUNSTATUS, dwDynamicErrCountPerMin), "dynamic_errors_per_min"},
};

inline constexpr CounterField TABLE_COUNTER_FIELDS[] = {
    {offsetof(TABLERUNSTATUS, dwQueryErrCountPerMin), "query_errors_per_min"},
    {offsetof(TABLERUNSTATUS, dwInsertErrCountPerMin), "insert_errors_per_min"},
    {offsetof(TABLERUNSTATUS, dwUpdateErrCountPerMin), "update_errors_per_min"},
    {offsetof(TABLERUNSTATUS, dwReplaceErrCountPerMin), "replace_errors_per_min"},
    {offsetof(TABLERUNSTATUS, dwDeleteErrCountPerMin), "delete_errors_per_min"},
    {offsetof(TABLERUNSTATUS, dwPackErrCountPerMin), "pack_errors_per_min"},
    {offsetof(TABLERUNSTATUS, dwOtherErrCountPerMin), "other_errors_per_min"},
    {offsetof(TABLERUNSTATUS, dwRequestCountPerMin), "requests_per_min"},
    {offsetof(TABLERUNSTATUS, dwBatchRequestCountPerMin), "batch_requests_per_min"},
    {offsetof(TABLERUNSTATUS, dwResponseCountPerMin), "responses_per_min"},
    {offsetof(TABLERUNSTATUS, dwBatchResponseCountPerMin), "batch_responses_per_min"},
    {offsetof(TABLERUNSTATUS, dwSuccessResponseCountPerMin), "success_responses_per_min"},
};

inline constexpr CounterField ACCESS_COUNTER_FIELDS[] = {
    {offsetof(ACCESSRUNSTATUS, dwRequestCountPerMin), "requests_per_min"},
    {offsetof(ACCESSRUNSTATUS, dwBatchRequestCountPerMin), "batch_requests_per_min"},
    {offsetof(ACCESSRUNSTATUS, dwResponseCountPerMin), "responses_per_min"},
    {offsetof(ACCESSRUNSTATUS, dwBatchResponseCountPerMin), "batch_responses_per_min"},
    {offsetof(ACCESSRUNSTATUS, dwSuccessResponseCountPerMin), "success_responses_per_min"},
    {offsetof(ACCESSRUNSTATUS, dwTimeoutCountPerMin), "timeouts_per_min"},
    {offsetof(ACCESSRUNSTATUS, dwProxyReturnErrCountPerMin), "proxy_errors_per_min"},
    {offsetof(ACCESSRUNSTATUS, dwProxyReturnSystemErrCountPerMin), "proxy_system_errors_per_min"},
    {offsetof(ACCESSRUNSTATUS, dwKorvsvrReturnErrCountPerMin), "korvsvr_errors_per_min"},
    {offsetof(ACCESSRUNSTATUS, dwDynamicErrCountPerMin), "dynamic_errors_per_min"},
};

// Whether the counters, none of them named twice, and `other_size` bytes make up the status: one
// that was added to the record and forgotten above does not compile.
template <class Status, size_t COUNT>
constexpr bool NamesAllCounters(const CounterField (&fields)[COUNT], size_t other_size) {
  for (size_t i = 1; i < COUNT; ++i) {
    if (fields[i].offset < fields[i - 1].offset + sizeof(uint32_t)) return false;
  }
  return COUNT * sizeof(uint32_t) + other_size == sizeof(Status);
}

static_assert(NamesAllCounters<OVERALLRUNSTATUS>(
                  OVERALL_COUNTER_FIELDS,
                  sizeof(OVERALLRUNSTATUS::nAccessCount) +
                      sizeof(OVERALLRUNSTATUS::ullAverageDelay) +
                      sizeof(OVERALLRUNSTATUS::dwCalculateAverageDelayResCount) +
                      sizeof(OVERALLRUNSTATUS::dwMaxCallOnUpdateInterval) +
                      sizeof(OVERALLRUNSTATUS::szUserDefinedText)),
              "each overall counter has one name");
static_assert(NamesAllCounters<TABLERUNSTATUS>(TABLE_COUNTER_FIELDS, 0),
              "each table counter has one name");
static_assert(
    NamesAllCounters<ACCESSRUNSTATUS>(ACCESS_COUNTER_FIELDS,
                                      sizeof(ACCESSRUNSTATUS::ullAverageDelay) +
                                          sizeof(ACCESSRUNSTATUS::dwCalculateAverageDelayResCount)),
    "each access counter has one name");

}  // namespace KorvainService::detail

#endif  // KORVAIN_COUNTER_FIELDS_H_
