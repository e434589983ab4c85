// Checks a finished run: do the reports agree with what the programs themselves have counted?
#include <set>
#include <string>
#include <vector>

#include "demo/common/command_line.h"
#include "tests/system/recorded_run.h"
#include "tests/system/run_checks.h"
#include "tests/system/verdict.h"

namespace demo {

namespace {

struct CheckOptions {
  RunFiles files;
  std::vector<std::string> expect_unavailable;
  double clock_speed = 1;
  double delay_tolerance_ms = 15;
};

void AddOptions(CLI::App& app, CheckOptions& options) {
  app.footer("Exit status: 0 all agrees, 1 a check has failed, 2 unusable arguments or files.");
  app.add_option("--journal", options.files.journal, "file written by the host")->required();
  app.add_option("--host-summary", options.files.host_summary, "file written by the host")
      ->required();
  AddRepeatedOption(app, "--collected", options.files.collected, "file written by a collect server")
      ->required();
  AddRepeatedOption(app, "--proxy-summary", options.files.proxy_summaries,
                    "file written by a proxy")
      ->required();
  AddRepeatedOption(app, "--expect-unavailable", options.expect_unavailable,
                    "proxy that must have been judged unavailable; none by default")
      ->check(UdpUrl());
  app.add_option("--clock-speed", options.clock_speed,
                 "as given to the host, host seconds a second")
      ->check(InRange(1, 1000));
  app.add_option("--delay-tolerance", options.delay_tolerance_ms,
                 "milliseconds by which a mean delay may be longer than the proxy held requests")
      ->check(InRange(0, 10000));
}

int CheckRun(const CheckOptions& options) {
  const RecordedRun run = ReadRun(options.files);
  Verdict verdict;
  CheckContents(run, verdict);
  CheckDelivery(run, verdict);
  CheckCounts(run, verdict);
  CheckDelays(run, options.clock_speed, options.delay_tolerance_ms, verdict);
  CheckJudgements(run, {options.expect_unavailable.begin(), options.expect_unavailable.end()},
                  verdict);
  return verdict.Conclude() ? 0 : 1;
}

}  // namespace

}  // namespace demo

int main(int argc, char** argv) {
  demo::CheckOptions options;
  return demo::RunProgram(
      argc, argv, "report_check", "Compares the reports of a run with what its programs counted.",
      [&](CLI::App& app) { AddOptions(app, options); }, [&] { return demo::CheckRun(options); });
}
