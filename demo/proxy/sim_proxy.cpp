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
#include "demo/common/output_file.h"
#include "demo/common/signals.h"
#include "demo/common/udp_socket.h"
#include "demo/common/wire_format.h"

namespace demo {

namespace {

using Clock = std::chrono::steady_clock;

struct ProxyOptions {
  std::string name = "sim-proxy";
  uint16_t port = 0;
  int delay_mean_ms = 10;
  std::string fault = "drop";
  std::string summary;
};

void AddOptions(CLI::App& app, ProxyOptions& options) {
  app.footer("SIGUSR1 begins the fault, or ends it. SIGINT or SIGTERM ends the program.");
  AddNameOption(app, options.name);
  AddNumber(app, "--port", options.port, 0, UINT16_MAX,
            "where to receive on 127.0.0.1; 0: a free one");
  AddNumber(app, "--delay-mean", options.delay_mean_ms, 1, 60000,
            "mean delay of an answer, milliseconds; none is longer than five times that");
  app.add_option("--fault", options.fault, "what a fault does: drop requests, or answer errors")
      ->check(CLI::IsMember({"drop", "errors"}));
  app.add_option("--summary", options.summary, "file for the final counts, JSON; none by default");
}

struct PendingAnswer {
  Clock::time_point received;
  sockaddr_in to;
  Message answer;
};

// For the check at the end of a run.
struct Counts {
  std::string url;
  int64_t received = 0;
  int64_t dropped = 0;
  int64_t answered = 0;
  int64_t errors = 0;   // of those answered
  int64_t held_us = 0;  // sum of the times between request and answer
};
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Counts, url, received, dropped, answered, errors, held_us)

class SimProxy {
 public:
  explicit SimProxy(const ProxyOptions& options)
      : m_options(options),
        m_console(options.name),
        m_summary(options.summary, m_console),
        m_socket(options.port),
        m_counts{m_socket.LocalUrl()} {}

  void Run() {
    constexpr int LONGEST_WAIT_MS = 50;
    m_console.Note("receiving on {}", m_counts.url);
    for (int signal = 0; signal != SIGINT && signal != SIGTERM; signal = m_signals.Take()) {
      if (signal == SIGUSR1) TurnFault();
      m_socket.Wait(m_pending.empty() ? LONGEST_WAIT_MS : 1);
      m_socket.TakeWaiting([this](const Datagram& datagram) { TakeRequest(datagram); });
      SendAnswers(Clock::now());
    }
    SendAnswers(Clock::time_point::max());
    m_summary.Write(nlohmann::json(m_counts).dump());
  }

 private:
  void TurnFault() {
    m_is_faulty = !m_is_faulty;
    const char* const fault = m_options.fault == "drop" ? "drops all requests from now on"
                                                        : "answers nothing but errors from now on";
    m_console.Announce("{} {}", m_options.name, m_is_faulty ? fault : "works again");
  }

  void TakeRequest(const Datagram& datagram) {
    const auto request = Decode(datagram.bytes);
    if (!request || request->kind != MessageKind::REQUEST) return;
    ++m_counts.received;
    if (m_is_faulty && m_options.fault == "drop") {
      ++m_counts.dropped;
      return;
    }
    const auto now = Clock::now();
    const auto kind = m_is_faulty ? MessageKind::SYSTEM_ERROR : MessageKind::RESPONSE;
    const double mean_us = 1000.0 * m_options.delay_mean_ms;
    const double delay_us = std::exponential_distribution<>(1 / mean_us)(m_random);
    const std::chrono::microseconds delay(static_cast<int64_t>(std::min(delay_us, 5 * mean_us)));
    m_pending.insert({now + delay, {now, datagram.from, {kind, request->id}}});
  }

  void SendAnswers(Clock::time_point due) {
    while (!m_pending.empty() && m_pending.begin()->first <= due) {
      const auto [received, to, answer] = m_pending.begin()->second;
      m_pending.erase(m_pending.begin());
      const auto held = Clock::now() - received;
      if (!m_socket.Send(Encode(answer), to)) continue;
      ++m_counts.answered;
      m_counts.errors += answer.kind == MessageKind::SYSTEM_ERROR ? 1 : 0;
      m_counts.held_us += std::chrono::duration_cast<std::chrono::microseconds>(held).count();
    }
  }

  const ProxyOptions m_options;
  Console m_console;
  const Signals m_signals{SIGINT, SIGTERM, SIGUSR1};
  OutputFile m_summary;
  UdpSocket m_socket;
  std::mt19937_64 m_random;
  std::multimap<Clock::time_point, PendingAnswer> m_pending;  // by the time when it is due
  bool m_is_faulty = false;
  Counts m_counts;
};

}  // namespace

}  // namespace demo

int main(int argc, char** argv) {
  demo::ProxyOptions options;
  return demo::RunProgram(
      argc, argv, "sim_proxy", "A simulated proxy behind a UDP port that fails on demand.",
      [&](CLI::App& app) { AddOptions(app, options); }, [&] { demo::SimProxy(options).Run(); });
}
