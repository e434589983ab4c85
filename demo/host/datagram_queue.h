// Reports on their way to a collect server, spread over time.
#ifndef KORVAIN_DEMO_DATAGRAM_QUEUE_H_
#define KORVAIN_DEMO_DATAGRAM_QUEUE_H_

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <string>
#include <string_view>

#include "line_protocol/report_packer.h"

namespace demo {

// A full report is a burst of more than a hundred datagrams. A receiver with the usual buffer has
// room for fewer, and the network tells nobody what it drops. So a millisecond gets a few of them,
// and the rest waits for a later round of the host's loop.
class DatagramQueue {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;
  using Send = std::function<bool(std::string_view datagram)>;
  using Done = std::function<void(bool is_handed_over)>;

  static constexpr size_t MOST_WAITING = 20000;  // datagrams
  static constexpr size_t USUAL_PACE = 4;        // datagrams a millisecond

  explicit DatagramQueue(size_t per_millisecond = USUAL_PACE)
      : m_per_millisecond(per_millisecond) {}

  // `done` learns whether all of the report was sent, after the last of it was tried: at once when
  // it does not fit into the queue any more, which then takes nothing of it.
  void Add(std::string report, size_t datagram_size, Done done);

  // To be called in every round.
  void SendDue(TimePoint now, const Send& send);

  bool IsEmpty() const { return m_reports.empty(); }

 private:
  struct Report {
    std::string text;
    KorvainService::DatagramSplit split;  // of the text
    size_t tried;                         // datagrams
    bool is_taken;
    Done done;
  };

  void SendNext(const Send& send);

  const size_t m_per_millisecond;
  std::deque<Report> m_reports;
  size_t m_waiting = 0;  // datagrams
  TimePoint m_next_time{};
};

}  // namespace demo

#endif  // KORVAIN_DEMO_DATAGRAM_QUEUE_H_
