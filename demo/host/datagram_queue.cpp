#include "demo/host/datagram_queue.h"

#include <utility>

namespace demo {

using namespace KorvainService;

void DatagramQueue::Add(std::string report, size_t datagram_size, Done done) {
  // Split in its place: the parts are views of the text.
  Report& added = m_reports.emplace_back(Report{std::move(report), {}, 0, true, std::move(done)});
  added.split = SplitIntoDatagrams(added.text, datagram_size);
  added.is_taken = added.split.lines_left_out == 0;
  const size_t datagrams = added.split.datagrams.size();
  if (datagrams > 0 && m_waiting + datagrams <= MOST_WAITING) {
    m_waiting += datagrams;
    return;
  }
  const Done refused = std::move(added.done);
  m_reports.pop_back();
  refused(false);
}

void DatagramQueue::SendDue(TimePoint now, const Send& send) {
  if (now < m_next_time) return;
  m_next_time = now + std::chrono::milliseconds(1);
  for (size_t i = 0; i < m_per_millisecond && !m_reports.empty(); ++i) SendNext(send);
}

void DatagramQueue::SendNext(const Send& send) {
  Report& report = m_reports.front();
  const bool is_taken = send(report.split.datagrams[report.tried]);
  report.is_taken = report.is_taken && is_taken;
  --m_waiting;
  if (++report.tried < report.split.datagrams.size()) return;
  const Done done = std::move(report.done);
  const bool is_handed_over = report.is_taken;
  m_reports.pop_front();
  done(is_handed_over);
}

}  // namespace demo
