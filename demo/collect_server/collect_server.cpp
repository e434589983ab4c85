// A collect server: receives reports, keeps their lines as they came, and shows them as tables.
#include <chrono>
#include <csignal>
#include <cstdint>
#include <string>
#include <string_view>

#include "demo/collect_server/report_assembler.h"
#include "demo/collect_server/report_table.h"
#include "demo/common/command_line.h"
#include "demo/common/console.h"
#include "demo/common/output_file.h"
#include "demo/common/report_line.h"
#include "demo/common/signal_watch.h"
#include "demo/common/udp_socket.h"

namespace demo {

namespace {

using Clock = std::chrono::steady_clock;

struct CollectOptions {
  ConsoleOptions console{"collect-server", "", false};
  ListenOptions listen;
  std::string file;
};

void AddOptions(CLI::App& app, CollectOptions& options) {
  app.footer("SIGUSR1 shows the next complete report. SIGINT or SIGTERM ends the program.");
  AddListenOptions(app, options.listen);
  app.add_option("--file", options.file,
                 "file to which the lines are appended as they come; none by default");
  AddConsoleOptions(app, options.console);
}

class CollectServer {
 public:
  explicit CollectServer(const CollectOptions& options)
      : m_console(options.console),
        m_signals({SIGINT, SIGTERM, SIGUSR1}),
        m_file(options.file, OutputFile::APPENDED, m_console.Complainer()),
        m_socket(ParseUdpUrl(options.listen.url, PortRule::OR_ZERO)),
        m_assembler([this](const AssembledReport& report) { Show(report); }) {
    TellReady(options.listen, m_socket, m_console);
  }

  int Run() {
    constexpr int LONGEST_WAIT_MS = 200;
    for (int signal = 0; signal != SIGINT && signal != SIGTERM;) {
      signal = m_signals.Wait(m_socket.fd(), LONGEST_WAIT_MS);
      if (signal == SIGUSR1) m_is_showing_next = true;
      TakeDatagrams();
      m_assembler.PassOnOverdue(Clock::now());
    }
    m_assembler.PassOnAll();
    m_console.Note(
        "summary: {} datagrams, {} reports, {} of them incomplete, {} other lines, {} malformed "
        "lines, {} datagrams not kept, {} messages that nobody read",
        m_datagrams, m_reports, m_incomplete, m_other_lines, m_malformed, m_file.Lost(),
        m_console.Dropped());
    return 0;
  }

 private:
  void TakeDatagrams() {
    constexpr int MOST_AT_ONCE = 256;  // so that a flood does not hide a signal
    for (int i = 0; i < MOST_AT_ONCE; ++i) {
      const auto datagram = m_socket.Receive();
      if (!datagram) return;
      ++m_datagrams;
      Take(*datagram);
    }
  }

  void Take(const Datagram& datagram) {
    const std::string from = ToUrl(datagram.from);
    std::string kept;
    for (const std::string_view text : SplitLines(datagram.bytes)) {
      kept.append(text).append("\n");
      const std::optional<ReportLine> line = ReadReportLine(text);
      if (!line) {
        if (m_malformed++ == 0) ComplainOfLine(from, text);
      } else if (!m_assembler.Add(from, *line, text.size(), Clock::now())) {
        ++m_other_lines;
      }
    }
    m_file.Write(kept);
    if (m_assembler.PassedOnEarly() > 0 && !m_has_complained_of_crowd) {
      m_has_complained_of_crowd = true;
      m_console.Announce("too many incomplete reports: from now on the oldest gives way");
    }
  }

  void ComplainOfLine(const std::string& from, std::string_view text) {
    m_console.Announce("a malformed line from {}, further ones are only counted: {}", from,
                       Printable(text));
  }

  void Show(const AssembledReport& report) {
    ++m_reports;
    if (!report.IsComplete()) ++m_incomplete;
    const std::string text = FormatTitle(report) + '\n' + FormatTables(report);
    if (m_is_showing_next && report.IsComplete()) {
      m_is_showing_next = false;
      m_console.Say("{}", text);
    } else {
      m_console.Note("{}", text);
    }
  }

  Console m_console;
  const SignalWatch m_signals;
  OutputFile m_file;
  UdpSocket m_socket;
  ReportAssembler m_assembler;
  int64_t m_datagrams = 0;
  int64_t m_reports = 0;
  int64_t m_incomplete = 0;
  int64_t m_other_lines = 0;
  int64_t m_malformed = 0;
  bool m_is_showing_next = false;
  bool m_has_complained_of_crowd = false;
};

}  // namespace

}  // namespace demo

int main(int argc, char** argv) {
  demo::CollectOptions options;
  return demo::RunProgram(
      argc, argv, "collect_server", "Receives reports as UDP datagrams and shows them as tables.",
      [&](CLI::App& app) { AddOptions(app, options); },
      [&] { return demo::CollectServer(options).Run(); });
}
