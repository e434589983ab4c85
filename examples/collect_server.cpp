// A collect server: receives reports and prints them as tables.
#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <map>
#include <string>

#include "examples/line_protocol.h"
#include "examples/program.h"
#include "examples/report_assembler.h"
#include "examples/report_table.h"
#include "examples/udp_socket.h"

namespace example {

namespace {

using Clock = std::chrono::steady_clock;

struct CollectOptions {
  std::string name = "collect-server";
  std::string listen = "udp://127.0.0.1:9200";
  std::string file;
  bool quiet = false;
};

void AddOptions(CLI::App& app, CollectOptions& options) {
  app.add_option("--listen", options.listen, "where to receive reports")->check(UdpUrl());
  app.add_option("--file", options.file, "file to which the datagrams are appended");
  app.add_option("--name", options.name, "name in front of each line of output");
  app.add_flag("--quiet", options.quiet, "print only the title of each report");
}

class CollectServer {
 public:
  explicit CollectServer(const CollectOptions& options)
      : m_options(options),
        m_console(options.name),
        m_signals({SIGINT, SIGTERM}),
        m_file(OpenFile(options.file, "ab")),
        m_socket(ParseUdpUrl(options.listen)),
        m_assembler([this](const AssembledReport& report) { Print(report); }) {}

  int Run() {
    constexpr int LONGEST_WAIT_MS = 200;
    m_console.Print("receiving on {}", m_options.listen);
    while (m_signals.Wait(m_socket.fd(), LONGEST_WAIT_MS) == 0) {
      TakeDatagrams();
      m_assembler.PassOnOverdue(Clock::now());
    }
    m_assembler.PassOnAll();
    Conclude();
    return 0;
  }

 private:
  void TakeDatagrams() {
    constexpr int MOST_AT_ONCE = 256;  // so that a flood does not hide a signal
    for (int i = 0; i < MOST_AT_ONCE; ++i) {
      const auto datagram = m_socket.Receive();
      if (!datagram) return;
      ++m_datagrams;
      Save(datagram->bytes);
      TakeLines(*datagram);
    }
  }

  // As it came, but for a missing last line end, without which the next datagram would run on.
  void Save(std::string_view bytes) {
    if (m_file == nullptr || bytes.empty()) return;
    std::string text(bytes);
    if (text.back() != '\n') text += '\n';
    WriteThrough(m_file.get(), text);
  }

  void TakeLines(const Datagram& datagram) {
    int64_t malformed = 0;
    std::string_view first_malformed;
    for (const std::string_view text : SplitLines(datagram.bytes)) {
      const std::optional<Line> line = ParseLine(text);
      if (!line) {
        if (malformed++ == 0) first_malformed = text;
      } else {
        const bool is_of_report = m_assembler.Add(datagram.from, *line, Clock::now());
        ++m_lines[is_of_report ? line->measurement : "other"];
      }
    }
    if (malformed > 0) ReportMalformed(datagram, malformed, first_malformed);
  }

  void ReportMalformed(const Datagram& datagram, int64_t count, std::string_view first) {
    constexpr int MOST_COMPLAINTS = 20;
    m_malformed += count;
    if (m_complaints >= MOST_COMPLAINTS) return;
    m_console.Print("{} malformed lines in {} bytes from {}, the first: {}{}", count,
                    datagram.bytes.size(), ToUrl(datagram.from), Printable(first),
                    ++m_complaints == MOST_COMPLAINTS ? " (more of them are only counted)" : "");
  }

  void Print(const AssembledReport& report) {
    ++m_reports;
    if (!report.IsComplete()) ++m_incomplete;
    m_console.PrintLines(FormatTitle(report) + '\n' +
                         (m_options.quiet ? "" : FormatTables(report)));
  }

  void Conclude() const {
    std::string kinds;
    for (const auto& [kind, count] : m_lines) kinds += fmt::format(", {} {}", count, kind);
    m_console.Print("summary: {} datagrams, {} reports ({} incomplete){}, {} malformed lines",
                    m_datagrams, m_reports, m_incomplete, kinds, m_malformed);
  }

  const CollectOptions m_options;
  const Console m_console;
  const SignalWatch m_signals;
  const File m_file;
  UdpSocket m_socket;
  ReportAssembler m_assembler;
  int64_t m_datagrams = 0;
  int64_t m_reports = 0;
  int64_t m_incomplete = 0;
  int64_t m_malformed = 0;
  int m_complaints = 0;
  std::map<std::string, int64_t> m_lines;
};

}  // namespace

}  // namespace example

int main(int argc, char** argv) {
  CLI::App app("Receives reports as UDP datagrams and prints them as tables.", "collect_server");
  example::CollectOptions options;
  example::AddOptions(app, options);
  return example::RunProgram(app, argc, argv,
                             [&] { return example::CollectServer(options).Run(); });
}
