// A simulated proxy: answers requests after a while, and fails on demand.
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <random>
#include <string>

#include "demo/common/command_line.h"
#include "demo/common/console.h"
#include "demo/common/signal_watch.h"
#include "demo/common/udp_socket.h"
#include "demo/common/wire_format.h"

namespace demo {

namespace {

using Clock = std::chrono::steady_clock;

struct ProxyOptions {
  ConsoleOptions console{"sim-proxy", "", false};
  ListenOptions listen;
  double delay_mean_ms = 10;
  std::string fault = "drop";
  std::string summary;
};

void AddOptions(CLI::App& app, ProxyOptions& options) {
  app.footer("SIGUSR1 begins the fault, or ends it. SIGINT or SIGTERM ends the program.");
  AddListenOptions(app, options.listen);
  app.add_option("--delay-mean", options.delay_mean_ms,
                 "mean delay of an answer, milliseconds; none is longer than five times that")
      ->check(InRange(0, 60000));
  app.add_option("--fault", options.fault, "what a fault does: drop requests, or answer errors")
      ->check(CLI::IsMember({"drop", "errors"}));
  app.add_option("--summary", options.summary, "file for the final counts, JSON; none by default");
  AddConsoleOptions(app, options.console);
}

struct PendingAnswer {
  Clock::time_point received;
  sockaddr_in to;
  ResponseMessage response;
};

class SimProxy {
 public:
  explicit SimProxy(const ProxyOptions& options)
      : m_options(options),
        m_console(options.console),
        m_signals({SIGINT, SIGTERM, SIGUSR1}),
        m_summary(options.summary, OutputFile::REPLACED, m_console.Complainer()),
        m_socket(ParseUdpUrl(options.listen.url, PortRule::OR_ZERO)) {}

  int Run() {
    TellReady(m_options.listen, m_socket, m_console);
    for (int signal = 0; signal != SIGINT && signal != SIGTERM;) {
      signal = m_signals.Wait(m_socket.fd(), MillisecondsToWait());
      if (signal == SIGUSR1) TurnFault();
      TakeRequests();
      SendAnswers(Clock::now());
    }
    SendAnswers(Clock::time_point::max());
    const nlohmann::json summary = {{"url", m_socket.LocalUrl()}, {"received", m_received},
                                    {"dropped", m_dropped},       {"answered", m_answered},
                                    {"errors", m_errors},         {"held_us", m_held_us}};
    m_console.Note("{}", summary.dump());
    m_summary.Write(summary.dump() + '\n');
    return 0;
  }

 private:
  int MillisecondsToWait() const {
    constexpr std::chrono::milliseconds LONGEST(100);
    if (m_pending.empty()) return static_cast<int>(LONGEST.count());
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(m_pending.begin()->first - Clock::now());
    return static_cast<int>(std::clamp(left, std::chrono::milliseconds(0), LONGEST).count());
  }

  void TurnFault() {
    m_is_faulty = !m_is_faulty;
    const char* const fault = m_options.fault == "drop" ? "drops all requests from now on"
                                                        : "answers nothing but errors from now on";
    m_console.Announce("{} {}", m_options.console.name, m_is_faulty ? fault : "works again");
  }

  void TakeRequests() {
    constexpr int MOST_AT_ONCE = 256;  // so that answers do not wait for a flood to end
    for (int i = 0; i < MOST_AT_ONCE; ++i) {
      const auto datagram = m_socket.Receive();
      if (!datagram) return;
      if (const auto request = DecodeRequest(datagram->bytes)) Take(*request, datagram->from);
    }
  }

  void Take(const RequestMessage& request, const sockaddr_in& from) {
    ++m_received;
    if (m_is_faulty && m_options.fault == "drop") {
      ++m_dropped;
      return;
    }
    const auto now = Clock::now();
    const auto status = m_is_faulty ? ResponseStatus::SYSTEM_ERROR : ResponseStatus::OK;
    m_pending.insert({now + DrawDelay(), {now, from, {request.sequence, status}}});
  }

  std::chrono::microseconds DrawDelay() {
    const double mean_ms = m_options.delay_mean_ms;
    if (mean_ms <= 0) return {};
    const double drawn_ms = std::exponential_distribution<>(1 / mean_ms)(m_random);
    const double delay_ms = std::min(drawn_ms, 5 * mean_ms);
    return std::chrono::microseconds(static_cast<int64_t>(delay_ms * 1000));
  }

  void SendAnswers(Clock::time_point due) {
    while (!m_pending.empty() && m_pending.begin()->first <= due) {
      const PendingAnswer answer = m_pending.begin()->second;
      m_pending.erase(m_pending.begin());
      const auto held = Clock::now() - answer.received;
      if (!m_socket.Send(Encode(answer.response), answer.to)) continue;
      ++m_answered;
      m_errors += answer.response.status == ResponseStatus::SYSTEM_ERROR ? 1 : 0;
      m_held_us += std::chrono::duration_cast<std::chrono::microseconds>(held).count();
    }
  }

  const ProxyOptions m_options;
  Console m_console;
  const SignalWatch m_signals;
  OutputFile m_summary;
  UdpSocket m_socket;
  std::mt19937_64 m_random;
  std::multimap<Clock::time_point, PendingAnswer> m_pending;  // by the time when it is due
  bool m_is_faulty = false;
  // For the check at the end of a run.
  int64_t m_received = 0;
  int64_t m_dropped = 0;
  int64_t m_answered = 0;
  int64_t m_errors = 0;   // of those answered
  int64_t m_held_us = 0;  // sum of the times between request and answer
};

}  // namespace

}  // namespace demo

int main(int argc, char** argv) {
  demo::ProxyOptions options;
  return demo::RunProgram(
      argc, argv, "sim_proxy", "A simulated proxy behind a UDP port that fails on demand.",
      [&](CLI::App& app) { AddOptions(app, options); },
      [&] { return demo::SimProxy(options).Run(); });
}
