// Checks a database after a run: does it hold what the hosts have journalled, and nothing else?
#include <cmath>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "demo/common/command_line.h"
#include "demo/database/database_checks.h"
#include "demo/database/stored_lines.h"
#include "tests/system/run_checks.h"

namespace demo {

namespace {

struct CheckOptions {
  std::vector<std::string> journals;
  std::string exported;
  std::string sums;
  std::string killed_url;
};

constexpr int64_t SUM_WINDOW_S = 120;  // as in the query

void AddOptions(CLI::App& app, CheckOptions& options) {
  app.footer("Exit status: 0 all agrees, 1 a check has failed, 2 unusable arguments or files.");
  AddRepeatedOption(app, "--journal", options.journals, "file written by a host")->required();
  app.add_option("--export", options.exported, "what the database's export has answered")
      ->required();
  app.add_option("--sums", options.sums,
                 "what it has answered to the query of request sums by url, over 2 minutes")
      ->required();
  app.add_option("--killed", options.killed_url,
                 "collect server that was killed: the report at "
                 "that moment may be missing, one of each zone")
      ->check(UdpUrl())
      ->required();
}

Sums ReadSums(const std::string& path) {
  Sums sums{};
  ReadJsonLines(path, [&](const nlohmann::json& answer) {
    for (const nlohmann::json& result : answer.at("data").at("result")) {
      sums.time_s = result.at("value").at(0).get<int64_t>();
      const auto url = result.at("metric").at("url").get<std::string>();
      const auto value = std::stoll(result.at("value").at(1).get<std::string>());
      sums.requests_per_min[url] += value;
    }
  });
  return sums;
}

std::vector<RecordedRun> ReadHosts(const CheckOptions& options) {
  std::map<std::string, CollectedFile> stored = ReadStoredLines(options.exported);
  std::vector<RecordedRun> hosts;
  for (const std::string& path : options.journals) {
    RecordedRun host;
    host.journal = ReadJournal(path);
    const std::string& instance = host.journal.front().instance;
    host.collected.push_back(stored[instance]);
    stored.erase(instance);
    hosts.push_back(host);
  }
  // What nobody owns is nobody's report.
  for (const auto& [instance, file] : stored) hosts.front().collected.push_back(file);
  return hosts;
}

int CheckDatabase(const CheckOptions& options) {
  const std::vector<RecordedRun> hosts = ReadHosts(options);
  Verdict verdict;
  for (const RecordedRun& host : hosts) {
    CheckContents(host, verdict);
    CheckArrival(host, options.killed_url, verdict);
  }
  CheckFields(hosts, verdict);
  CheckSums(hosts, ReadSums(options.sums), SUM_WINDOW_S, verdict);
  return verdict.Conclude() ? 0 : 1;
}

}  // namespace

}  // namespace demo

int main(int argc, char** argv) {
  demo::CheckOptions options;
  return demo::RunProgram(
      argc, argv, "database_check", "Compares a database with the journals of the reporting hosts.",
      [&](CLI::App& app) { AddOptions(app, options); },
      [&] { return demo::CheckDatabase(options); });
}
