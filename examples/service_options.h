// The settings of the small service API and of what it serves.
#ifndef KORVAIN_EXAMPLES_SERVICE_OPTIONS_H_
#define KORVAIN_EXAMPLES_SERVICE_OPTIONS_H_

#include <CLI/CLI.hpp>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace example {

inline constexpr int32_t SET_ID = 3;
inline constexpr int32_t APP_ID = 7;

struct ServiceOptions {
  std::string name = "service-api";
  std::vector<std::string> proxy_urls;
  std::vector<std::string> collect_urls;
  int32_t zones = 1;
  int32_t tables = 1;
  double rate = 100;
  double duration_s = 0;
  double clock_speed = 1;
  int32_t timeout_ms = 3000;
  int32_t report_period_s = 60;
  size_t datagram_size = 1400;
  int32_t judge_period_s = 10;
  int32_t judge_times = 3;
  int32_t judge_threshold = 90;
  int32_t recheck_s = 60;
  std::string journal;
  std::string summary;
  bool verbose = false;
};

void AddOptions(CLI::App& app, ServiceOptions& options);

// Throws UsageError for what no single option shows.
void CheckOptions(const ServiceOptions& options);

}  // namespace example

#endif  // KORVAIN_EXAMPLES_SERVICE_OPTIONS_H_
