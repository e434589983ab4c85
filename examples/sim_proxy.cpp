// A simulated proxy: answers requests after a while, and can drop them or answer with errors.
#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <queue>
#include <random>
#include <string>
#include <vector>

#include "examples/delay_model.h"
#include "examples/line_protocol.h"
#include "examples/program.h"
#include "examples/udp_socket.h"
#include "examples/wire_format.h"

namespace example {

namespace {

using Clock = std::chrono::steady_clock;

struct ProxyOptions {
  std::string name = "sim-proxy";
  std::string listen = "udp://127.0.0.1:9100";
  std::string delay_kind = "exponential";
  double delay_mean_ms = 10;
  double delay_max_ms = 1000;
  double drop_rate = 0;
  double error_rate = 0;
  double fault_from_s = 0;
  double fault_for_s = 0;  // 0: as long as the proxy runs
  uint64_t seed = 1;
  std::string summary;
};

void AddOptions(CLI::App& app, ProxyOptions& options) {
  constexpr double MOST_SECONDS = 1e6;
  app.add_option("--listen", options.listen, "where to serve")->check(UdpUrl());
  app.add_option("--delay", options.delay_kind, "distribution of the delay before an answer")
      ->check(CLI::IsMember({"fixed", "uniform", "exponential"}));
  app.add_option("--delay-mean", options.delay_mean_ms, "milliseconds")->check(InRange(0, 60000));
  app.add_option("--delay-max", options.delay_max_ms, "cap in milliseconds")
      ->check(InRange(0, 60000));
  app.add_option("--drop-rate", options.drop_rate, "share of requests that are dropped")
      ->check(InRange(0, 1));
  app.add_option("--error-rate", options.error_rate, "share of answers that are system errors")
      ->check(InRange(0, 1));
  app.add_option("--fault-from", options.fault_from_s, "no faults before, seconds since start")
      ->check(InRange(0, MOST_SECONDS));
  app.add_option("--fault-for", options.fault_for_s, "faults only for so many seconds")
      ->check(InRange(0.001, MOST_SECONDS));
  app.add_option("--seed", options.seed, "of the random numbers")->check(InRange(0));
  app.add_option("--name", options.name, "name in front of each line of output");
  app.add_option("--summary", options.summary, "file for the final counts, in line protocol");
}

struct PendingAnswer {
  Clock::time_point due;
  Clock::time_point received;
  sockaddr_in to;
  ResponseMessage response;
};

bool IsDueLater(const PendingAnswer& left, const PendingAnswer& right) {
  return left.due > right.due;
}

struct Counts {
  int64_t received = 0;
  int64_t dropped = 0;
  int64_t answered = 0;
  int64_t errors = 0;  // of those answered
  int64_t delay_us_sum = 0;
  int64_t unsent = 0;
  int64_t malformed = 0;
};

class SimProxy {
 public:
  explicit SimProxy(const ProxyOptions& options)
      : m_options(options),
        m_console(options.name),
        m_signals({SIGINT, SIGTERM}),
        m_summary(OpenFile(options.summary, "w")),
        m_socket(ParseUdpUrl(options.listen)),
        m_delay(options.delay_kind, options.delay_mean_ms, options.delay_max_ms),
        m_random(options.seed) {}

  int Run() {
    m_console.Print("serving on {}, {} delay of {} ms, at most {} ms", m_options.listen,
                    m_options.delay_kind, m_options.delay_mean_ms, m_options.delay_max_ms);
    while (m_signals.Wait(m_socket.fd(), MillisecondsToWait()) == 0) {
      UpdateFault();
      TakeRequests();
      SendAnswers(Clock::now());
    }
    SendAnswers(Clock::time_point::max());
    Conclude();
    return 0;
  }

 private:
  int MillisecondsToWait() const {
    constexpr std::chrono::milliseconds LONGEST(100);
    if (m_pending.empty()) return static_cast<int>(LONGEST.count());
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(m_pending.top().due - Clock::now());
    return static_cast<int>(std::clamp(left, std::chrono::milliseconds(0), LONGEST).count());
  }

  void UpdateFault() {
    const double elapsed_s = std::chrono::duration<double>(Clock::now() - m_start).count();
    const bool is_faulty =
        (m_options.drop_rate > 0 || m_options.error_rate > 0) &&
        elapsed_s >= m_options.fault_from_s &&
        (m_options.fault_for_s <= 0 || elapsed_s < m_options.fault_from_s + m_options.fault_for_s);
    if (is_faulty == m_is_faulty) return;
    m_is_faulty = is_faulty;
    if (is_faulty) {
      m_console.Print(
          "FAULT begins: {:.0f} % of the requests dropped, {:.0f} % of the others "
          "answered with an error",
          100 * m_options.drop_rate, 100 * m_options.error_rate);
    } else {
      m_console.Print("FAULT is over");
    }
  }

  void TakeRequests() {
    constexpr int MOST_AT_ONCE = 256;  // so that answers do not wait for a flood to end
    for (int i = 0; i < MOST_AT_ONCE; ++i) {
      const auto datagram = m_socket.Receive();
      if (!datagram) return;
      if (const auto request = DecodeRequest(datagram->bytes)) {
        Take(*request, datagram->from);
      } else {
        ++m_counts.malformed;
      }
    }
  }

  void Take(const RequestMessage& request, const sockaddr_in& from) {
    ++m_counts.received;
    if (IsHit(m_options.drop_rate)) {
      ++m_counts.dropped;
      return;
    }
    const auto now = Clock::now();
    const auto status =
        IsHit(m_options.error_rate) ? ResponseStatus::SYSTEM_ERROR : ResponseStatus::OK;
    m_pending.push({now + m_delay.Draw(m_random), now, from, {request.sequence, status}});
  }

  bool IsHit(double rate) { return m_is_faulty && std::bernoulli_distribution(rate)(m_random); }

  void SendAnswers(Clock::time_point due) {
    for (; !m_pending.empty() && m_pending.top().due <= due; m_pending.pop()) {
      const PendingAnswer& answer = m_pending.top();
      const auto held = Clock::now() - answer.received;
      if (!m_socket.Send(Encode(answer.response), answer.to)) {
        ++m_counts.unsent;
        continue;
      }
      ++m_counts.answered;
      m_counts.errors += answer.response.status == ResponseStatus::SYSTEM_ERROR ? 1 : 0;
      m_counts.delay_us_sum += std::chrono::duration_cast<std::chrono::microseconds>(held).count();
    }
  }

  void Conclude() {
    const double mean_ms = static_cast<double>(m_counts.delay_us_sum) / 1000 /
                           static_cast<double>(std::max<int64_t>(m_counts.answered, 1));
    m_console.Print(
        "summary: received {}, dropped {}, answered {} ({} of them errors), mean delay {:.1f} ms, "
        "unsent {}, malformed {}",
        m_counts.received, m_counts.dropped, m_counts.answered, m_counts.errors, mean_ms,
        m_counts.unsent, m_counts.malformed);
    if (m_summary == nullptr) return;
    const Line line{"proxy",
                    {{"url", m_options.listen}},
                    {{"received", m_counts.received},
                     {"dropped", m_counts.dropped},
                     {"errors", m_counts.errors},
                     {"answered", m_counts.answered},
                     {"delay_us_sum", m_counts.delay_us_sum}},
                    std::nullopt};
    WriteThrough(m_summary.get(), FormatLine(line));
  }

  const ProxyOptions m_options;
  const Console m_console;
  const SignalWatch m_signals;
  const File m_summary;
  UdpSocket m_socket;
  const DelayModel m_delay;
  std::mt19937_64 m_random;
  std::priority_queue<PendingAnswer, std::vector<PendingAnswer>, decltype(&IsDueLater)> m_pending{
      IsDueLater};
  const Clock::time_point m_start = Clock::now();
  bool m_is_faulty = false;
  Counts m_counts;
};

}  // namespace

}  // namespace example

int main(int argc, char** argv) {
  CLI::App app("A simulated proxy behind a UDP port, with faults on demand.", "sim_proxy");
  example::ProxyOptions options;
  example::AddOptions(app, options);
  return example::RunProgram(app, argc, argv, [&] { return example::SimProxy(options).Run(); });
}
