// Checks a finished run: do the reports agree with what the programs themselves have counted?
#include <CLI/CLI.hpp>
#include <set>
#include <string>
#include <vector>

#include "examples/program.h"
#include "examples/recorded_run.h"
#include "examples/run_checks.h"

namespace example {

namespace {

struct CheckOptions {
  RunFiles files;
  std::vector<std::string> expect_unavailable;
  double clock_speed = 1;
};

void AddOptions(CLI::App& app, CheckOptions& options) {
  app.add_option("--journal", options.files.journal, "written by the service API")->required();
  app.add_option("--service-summary", options.files.service_summary, "written by the service API")
      ->required();
  AddRepeatedOption(app, "--collected", options.files.collected, "written by a collect server")
      ->required();
  AddRepeatedOption(app, "--proxy-summary", options.files.proxy_summaries, "written by a proxy")
      ->required();
  AddRepeatedOption(app, "--expect-unavailable", options.expect_unavailable,
                    "proxy that must have been judged unavailable")
      ->check(UdpUrl());
  app.add_option("--clock-speed", options.clock_speed, "as given to the service API")
      ->check(InRange(1, 1000));
}

int CheckRun(const CheckOptions& options) {
  const RecordedRun run = ReadRun(options.files);
  Verdict verdict;
  CheckContents(run, verdict);
  CheckDelivery(run, verdict);
  CheckCounts(run, verdict);
  CheckDelays(run, options.clock_speed, verdict);
  CheckJudgements(run, {options.expect_unavailable.begin(), options.expect_unavailable.end()},
                  verdict);
  return verdict.Conclude() ? 0 : 1;
}

}  // namespace

}  // namespace example

int main(int argc, char** argv) {
  CLI::App app("Compares the reports of a run with what its programs counted.", "report_check");
  example::CheckOptions options;
  example::AddOptions(app, options);
  return example::RunProgram(app, argc, argv, [&] { return example::CheckRun(options); });
}
