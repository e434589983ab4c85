// The service API's own memory of the requests that it has sent.
#ifndef KORVAIN_EXAMPLES_SENT_REQUESTS_H_
#define KORVAIN_EXAMPLES_SENT_REQUESTS_H_

#include <cstddef>
#include <cstdint>
#include <deque>

namespace example {

enum class RequestState { WAITING, ANSWERED, TIMED_OUT };

struct SentRequest {
  int32_t latency_id;  // under which the module knows it
  int64_t sent_ms;
  size_t zone;
  size_t proxy;
  size_t table;
  RequestState state = RequestState::WAITING;
};

// Sequence numbers are consecutive and requests are added in the order of their send times. A
// request that has timed out is remembered for a while, so that a late answer is known as such.
class SentRequests {
 public:
  uint64_t NextSequence() const { return m_first_sequence + m_requests.size(); }
  void Add(const SentRequest& request) {
    m_requests.push_back(request);
    ++m_waiting;
  }

  // Null for a sequence number that was never used or is forgotten.
  SentRequest* Find(uint64_t sequence) {
    const bool is_known = sequence >= m_first_sequence && sequence < NextSequence();
    return is_known ? &m_requests[sequence - m_first_sequence] : nullptr;
  }

  bool IsForgotten(uint64_t sequence) const { return sequence > 0 && sequence < m_first_sequence; }

  // For a request that waits.
  void Close(SentRequest& request, RequestState state) {
    request.state = state;
    --m_waiting;
  }

  size_t Waiting() const { return m_waiting; }

  bool HasUnansweredSince(int64_t sent_ms) const {
    for (auto request = m_requests.rbegin(); request != m_requests.rend(); ++request) {
      if (request->sent_ms < sent_ms) return false;
      if (request->state != RequestState::ANSWERED) return true;
    }
    return false;
  }

  // Closes as timed out the waiting requests that were sent at `cutoff_ms` or before, the oldest
  // `limit` of them at most, and calls `on_time_out` for each.
  template <class Callback>
  void TimeOut(int64_t cutoff_ms, int limit, const Callback& on_time_out) {
    while (limit > 0 && m_next_to_time_out < NextSequence()) {
      SentRequest& request = *Find(m_next_to_time_out);
      if (request.sent_ms > cutoff_ms) return;
      ++m_next_to_time_out;
      if (request.state != RequestState::WAITING) continue;
      Close(request, RequestState::TIMED_OUT);
      on_time_out(request);
      --limit;
    }
  }

  // Forgets closed requests that were sent at `cutoff_ms` or before.
  void Forget(int64_t cutoff_ms) {
    while (!m_requests.empty() && m_first_sequence < m_next_to_time_out &&
           m_requests.front().sent_ms <= cutoff_ms) {
      m_requests.pop_front();
      ++m_first_sequence;
    }
  }

 private:
  std::deque<SentRequest> m_requests;
  uint64_t m_first_sequence = 1;  // of those remembered
  uint64_t m_next_to_time_out = 1;
  size_t m_waiting = 0;
};

}  // namespace example

#endif  // KORVAIN_EXAMPLES_SENT_REQUESTS_H_
